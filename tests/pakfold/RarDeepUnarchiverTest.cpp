#include <gtest/gtest.h>

#include "CoveredRanges.h"
#include "support/EntryCollector.h"
#include "support/RarRecipe.h"
#include "support/StringBuffer.h"
#include "unarchiver/DeepFormats.h"

namespace ZOV_SPACE {
namespace {

TEST(RarDeepUnarchiver, findsWhatAnyReaderWouldAndTellsWhatItDoesNot) {
    for (const auto& row : goldenRows<4>(VOLE_RAR_DEEP_ROWS, "deep")) {
        SCOPED_TRACE(row[3]);
        EntryCollector entries;
        std::istringstream volumes(row[0]);
        for (std::string volume; std::getline(volumes, volume, '/');) entries.volumes.push_back(rarOfRecipe(volume));
        StringBuffer content(entries.volumes.front());
        entries.volumes.erase(entries.volumes.begin());
        const ArchiveId& format = deepFormat(content, ARCHIVEID_NONE);
        const bool isIn = &format != &ARCHIVEID_NONE;
        if (isIn) format.unarchiver(&content, entries, nullptr)->start();
        EXPECT_EQ(isIn ? entries.contents() : "none", row[1]);
        EXPECT_EQ(entries.troubles, row[2]);
    }
}

TEST(CoveredRanges, areOneWhereTheyTouch) {
    CoveredRanges covered;
    for (const std::int64_t start : {50, 10, 30, 20, 35}) covered.add(start, start + 10);
    covered.add(7, 7);
    EXPECT_EQ(covered.endAt(10), 45);
    EXPECT_EQ(covered.endAt(44), 45);
    EXPECT_EQ(covered.endAt(45), 45);
    EXPECT_EQ(covered.endAt(9), 9);
    EXPECT_EQ(covered.nextBehind(9), 10);
    EXPECT_EQ(covered.nextBehind(45), 50);
    covered.add(0, 100);
    EXPECT_TRUE(covered.endAt(5) == 100 && covered.nextBehind(100) > 1'000'000);
}

}  // namespace
}  // namespace ZOV_SPACE
