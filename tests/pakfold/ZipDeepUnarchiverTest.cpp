#include "zip/deep/ZipDeepUnarchiver.h"

#include <gtest/gtest.h>

#include "support/EntryCollector.h"
#include "support/StringBuffer.h"
#include "support/ZipRecipe.h"
#include "unarchiver/DeepFormats.h"
#include "zip/deep/ZipMethods.h"

namespace ZOV_SPACE {
namespace {

TEST(ZipDeepUnarchiver, findsWhatAnyReaderWouldAndTellsWhatItDoesNot) {
    for (const GoldenRow& row : goldenRows(VOLE_ZIP_DEEP_ROWS, "deep")) {
        SCOPED_TRACE(row[3]);
        StringBuffer content(zipOfRecipe(VOLE_ZIP_DEEP_ROWS, row[0]));
        EntryCollector entries;
        CoveredRanges covered;
        ZipDeepUnarchiver(&content, entries, covered).start();
        EXPECT_EQ(entries.contents(), row[1]);
        EXPECT_EQ(entries.troubles, row[2]);
        for (const auto& entry : entries.entries) {
            EXPECT_LE(static_cast<unsigned>(entry.uncompressedSize), 1032 * (content.getSize() + 1));
        }
        EXPECT_TRUE(entries.begun == 1 && entries.ended == 1 && entries.released == 1);
    }
}

TEST(ZipDeepUnarchiver, isTriedOnContentsInWhichUnpackersLook) {
    for (const GoldenRow& row : goldenRows(VOLE_ZIP_DEEP_ROWS, "within")) {
        StringBuffer content(zipOfRecipe(VOLE_ZIP_DEEP_ROWS, row[0]));
        EXPECT_EQ(&deepFormat(content, ARCHIVEID_NONE) != &ARCHIVEID_NONE, row[1] == "yes") << row[2];
    }
}

TEST(ZipDeepUnarchiver, unpacksMethodsOfLibraries) {
    std::string text;
    for (int i = 0; i < 40; ++i) text += "packed ";
    for (const GoldenRow& row : goldenRows(VOLE_ZIP_DEEP_ROWS, "method")) {
        SCOPED_TRACE(row[0] + " " + row[4]);
        const auto method = static_cast<int>(numbersIn(row[0])[0]), flags = static_cast<int>(numbersIn(row[1])[0]);
        if (!findZipMethod(static_cast<unsigned>(method))) continue;  // Left out of this build.
        StringBuffer content(ZipBuilder({{"m", text, method, 0, flags, {}, row[2]}}).archive());
        EntryCollector entries;
        CoveredRanges covered;
        ZipDeepUnarchiver(&content, entries, covered).start();
        EXPECT_EQ(entries.troubles, row[3]);
        EXPECT_EQ(entries.contents() == "m=" + text + " ", row[3].empty() || row[4].starts_with("more"));
    }
}

}  // namespace
}  // namespace ZOV_SPACE
