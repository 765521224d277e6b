#include "zip/deep/ZipDeepUnarchiver.h"

#include <gtest/gtest.h>

#include "support/EntryCollector.h"
#include "support/StringBuffer.h"
#include "support/ZipRecipe.h"
#include "unarchiver/DeepFormats.h"

namespace ZOV_SPACE {
namespace {

TEST(ZipDeepUnarchiver, findsWhatAnyReaderWouldAndTellsWhatItDoesNot) {
    for (const GoldenRow& row : goldenRows(VOLE_ZIP_DEEP_ROWS, "deep")) {
        SCOPED_TRACE(row[3]);
        StringBuffer content(zipOfRecipe(VOLE_ZIP_DEEP_ROWS, row[0]));
        EntryCollector entries;
        ZipDeepUnarchiver(&content, entries).start();
        EXPECT_EQ(entries.contents(), row[1]);
        EXPECT_EQ(entries.troubles, row[2]);
        EXPECT_TRUE(entries.begun == 1 && entries.ended == 1 && entries.released == 1);
    }
}

TEST(ZipDeepUnarchiver, isTriedOnContentsInWhichUnpackersLook) {
    for (const GoldenRow& row : goldenRows(VOLE_ZIP_DEEP_ROWS, "within")) {
        StringBuffer content(zipOfRecipe(VOLE_ZIP_DEEP_ROWS, row[0]));
        EXPECT_EQ(&deepFormat(content, ARCHIVEID_NONE) != &ARCHIVEID_NONE, row[1] == "yes") << row[2];
    }
}

}  // namespace
}  // namespace ZOV_SPACE
