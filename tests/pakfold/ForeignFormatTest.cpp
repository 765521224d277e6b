#include "unarchiver/ForeignFormat.h"

#include <gtest/gtest.h>

#include "support/GoldenRows.h"
#include "support/StringBuffer.h"

namespace ZOV_SPACE {
namespace {

TEST(ForeignFormat, recognisesContainersAndNothingThatOnlyLooksLikeThem) {
    for (const GoldenRow& row : goldenRows(VOLE_FOREIGN_FORMATS, "foreign")) {
        StringBuffer content(row[1]);
        const char* const found = foreignFormat(content);
        EXPECT_STREQ(found ? found : "-", row[0].c_str()) << row[2];
    }
}

}  // namespace
}  // namespace ZOV_SPACE
