#include "tar/TarUnarchiver.h"

#include <gtest/gtest.h>

#include "support/EntryCollector.h"
#include "support/StringBuffer.h"
#include "support/TarRecipe.h"

namespace ZOV_SPACE {
namespace {

TEST(TarUnarchiver, readsAllGenerationsAndTellsWhatIsNotThere) {
    for (const GoldenRow& row : goldenRows(VOLE_TAR_ROWS, "tar")) {
        SCOPED_TRACE(row[3]);
        StringBuffer content(tarOfRecipe(VOLE_TAR_ROWS, row[0]));
        EntryCollector entries;
        CoveredRanges covered;
        TarUnarchiver(&content, entries, covered).start();
        EXPECT_EQ(entries.contents(), row[1]);
        EXPECT_EQ(entries.troubles, row[2]);
        EXPECT_TRUE(entries.begun == 1 && entries.ended == 1 && entries.released == 1);
    }
}

TEST(TarUnarchiver, isTriedOnWhatBeginsAsAnArchive) {
    for (const GoldenRow& row : goldenRows(VOLE_TAR_ROWS, "is")) {
        StringBuffer content(tarOfRecipe(VOLE_TAR_ROWS, row[0]));
        ProbedContent probed(content);
        EXPECT_EQ(TarUnarchiver::isIn(probed, row[1] == "held"), row[1] == "yes") << row[2];
    }
}

}  // namespace
}  // namespace ZOV_SPACE
