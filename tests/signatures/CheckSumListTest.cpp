#include "CheckSumList.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Exception.h"

namespace {

using Fields = std::vector<std::string>;

const Fields kGood = {"03", "0201", "fff0", "1A", "01020304", "a0b0c0d0", "12", "2", "0A0B0C0D", "Name"};

std::string lineOf(const Fields& fields) {
    std::string line;
    for (const std::string& field : fields) line += (line.empty() ? "" : ":") + field;
    return line;
}

std::string faultOf(CheckSumList& list, const std::string& line) {
    try {
        list.addString(line.c_str());
        return "";
    } catch (ZOV_SPACE::Exception& e) {
        return e.getMessage();
    }
}

TEST(CheckSumList, storesTheFieldsOfARecord) {
    CheckSumList list;
    ASSERT_EQ(faultOf(list, lineOf(kGood)), "");
    ASSERT_EQ(list.records(kTargetPe).size(), 1U);
    const CheckSumPattern& pattern = list.records(kTargetPe)[0];
    const std::vector<long long> values{pattern.offsetType, pattern.offsetParameter, pattern.offset1,
                                        pattern.length1,    pattern.checkString,     pattern.checkSum1,
                                        pattern.offset2,    pattern.length2,         pattern.checkSum2};
    EXPECT_EQ(values,
              (std::vector<long long>{kFromEntryPoint, 1, -16, 0x1A, 0x04030201, 0xd0c0b0a0, 0x12, 2, 0x0D0C0B0A}));
    EXPECT_STREQ(pattern.name, "Name");
}

TEST(CheckSumList, namesTheFieldThatIsMissing) {
    const char* const faults[] = {
        "Malformed chk-sum string :fail to get target",  "Malformed chk-sum string :fail to get offset type1",
        "Malformed chk-sum string :fail to get offset1", "Malformed chk-sum string :fail to get length1",
        "Malformed chk-sum :fail to get check_string",   "Malformed chk-sum :fail to get check-sum1",
        "Malformed chk-sum :fail to get offset2",        "Malformed chk-sum :fail to get length2",
        "Malformed chk-sum :fail to get check-sum2",     "Malformed chk-sum fail to get virus name",
    };
    for (std::size_t given = 0; given < kGood.size(); ++given) {
        CheckSumList list;
        const std::string line = lineOf(Fields(kGood.begin(), kGood.begin() + static_cast<std::ptrdiff_t>(given)));
        EXPECT_EQ(faultOf(list, line), faults[given]);
        EXPECT_EQ(faultOf(list, line + ":"), faults[given]) << "an empty last field is a missing one";
        EXPECT_EQ(list.count(), 0U);
    }
}

TEST(CheckSumList, saysWhatIsWrongWithAField) {
    const struct {
        std::size_t field;
        const char* text;
        const char* fault;  // Empty: accepted.
    } cases[] = {
        {0, "3", ""},
        {0, "%s", "Malformed chk-sum string :fail to get target, [%s]"},
        {0, "02", "Malformed chk-sum string :offsetType1 > 1, but targ != pe "},
        {0, "09", "Malformed chk-sum :target[9] is greater than 9"},
        {1, "02010", "Malformed signature :[02010] length is not 4"},
        {1, "0300", ""},
        {1, "0400", "Malformed chk-sum :offsetType1[0]=[4] is known"},
        {2, "00000", "Malformed chk-sum string :fail to get offset1, [00000]"},
        {3, "0x", "Malformed chk-sum :fail to get length1, [0x]"},
        {4, "0102030\xE9", "Malformed [0102030\xE9] in chk-sum string ."},
        {5, "010203040", "Malformed signature :[010203040] length is not 8"},
        {6, "10000", "Malformed chk-sum :fail to get offset2, [10000]"},
        {7, "100", "Malformed chk-sum :fail to get length2[100]"},
        {8, "0102030g", "Malformed [0102030g] in chk-sum string ."},
        {9, "Name:more:fields", ""},
    };
    for (const auto& c : cases) {
        CheckSumList list;
        Fields fields = kGood;
        fields[c.field] = c.text;
        EXPECT_EQ(faultOf(list, lineOf(fields)), c.fault);
        EXPECT_EQ(list.count(), *c.fault ? 0U : 1U) << c.text;
        for (const CheckSumPattern& pattern : list.records(kTargetPe)) EXPECT_STREQ(pattern.name, "Name");
    }
}

}  // namespace
