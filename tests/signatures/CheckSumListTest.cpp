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
    EXPECT_EQ(pattern.offsetType, kFromEntryPoint);
    EXPECT_EQ(pattern.offsetParameter, 1);
    EXPECT_EQ(pattern.offset1, -16);
    EXPECT_EQ(pattern.length1, 0x1A);
    EXPECT_EQ(pattern.checkString, 0x04030201U);
    EXPECT_EQ(pattern.checkSum1, 0xd0c0b0a0U);
    EXPECT_EQ(pattern.offset2, 0x12);
    EXPECT_EQ(pattern.length2, 2);
    EXPECT_EQ(pattern.checkSum2, 0x0D0C0B0AU);
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
    ASSERT_EQ(std::size(faults), kGood.size());
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
        {0, "003", "Malformed chk-sum string :fail to get target, [003]"},
        {0, "0g", "Malformed chk-sum string :fail to get target, [0g]"},
        {0, "%s", "Malformed chk-sum string :fail to get target, [%s]"},
        {1, "020", "Malformed signature :[020] length is not 4"},
        {1, "02010", "Malformed signature :[02010] length is not 4"},
        {1, "020x", "Malformed [020x] in chk-sum string ."},
        {2, "0", ""},
        {2, "00000", "Malformed chk-sum string :fail to get offset1, [00000]"},
        {2, "-1", "Malformed chk-sum string :fail to get offset1, [-1]"},
        {3, "fff", "Malformed chk-sum :fail to get length1, [fff]"},
        {3, "0x", "Malformed chk-sum :fail to get length1, [0x]"},
        {4, "0102030", "Malformed signature :[0102030] length is not 8"},
        {4, "0102030\xE9", "Malformed [0102030\xE9] in chk-sum string ."},
        {5, "010203040", "Malformed signature :[010203040] length is not 8"},
        {5, "01 20304", "Malformed [01 20304] in chk-sum string ."},
        {6, "10000", "Malformed chk-sum :fail to get offset2, [10000]"},
        {6, "z", "Malformed chk-sum :fail to get offset2, [z]"},
        {7, "100", "Malformed chk-sum :fail to get length2[100]"},
        {7, " 1", "Malformed chk-sum :fail to get length2[ 1]"},
        {8, "1", "Malformed signature :[1] length is not 8"},
        {8, "0102030g", "Malformed [0102030g] in chk-sum string ."},
        {9, "Name:more:fields", ""},
    };
    for (const auto& c : cases) {
        CheckSumList list;
        Fields fields = kGood;
        fields[c.field] = c.text;
        EXPECT_EQ(faultOf(list, lineOf(fields)), c.fault) << c.field << ": " << c.text;
        EXPECT_EQ(list.count(), *c.fault ? 0U : 1U) << c.field << ": " << c.text;
        for (const CheckSumPattern& pattern : list.records(kTargetPe)) EXPECT_STREQ(pattern.name, "Name");
    }
}

TEST(CheckSumList, allowsAnOffsetTypeOnlyWithTargetsThatHaveIt) {
    const std::string notPe = "Malformed chk-sum string :offsetType1 > 1, but targ != pe ";
    const struct {
        const char* target;
        const char* offsetType;
        std::string fault;
    } cases[] = {
        {"00", "0000", ""},
        {"00", "01ff", ""},
        {"01", "0100", ""},
        {"08", "0000", ""},
        {"03", "0000", ""},
        {"03", "0300", ""},
        {"00", "0201", notPe},
        {"02", "0300", notPe},
        {"03", "0400", "Malformed chk-sum :offsetType1[0]=[4] is known"},
        {"00", "ff00", "Malformed chk-sum :offsetType1[0]=[255] is known"},
        {"09", "0000", "Malformed chk-sum :target[9] is greater than 9"},
        {"ff", "ff00", "Malformed chk-sum :target[255] is greater than 9"},
    };
    for (const auto& c : cases) {
        CheckSumList list;
        Fields fields = kGood;
        fields[0] = c.target;
        fields[1] = c.offsetType;
        EXPECT_EQ(faultOf(list, lineOf(fields)), c.fault) << c.target << ":" << c.offsetType;
        EXPECT_EQ(list.count(), c.fault.empty() ? 1U : 0U);
    }
}

TEST(CheckSumList, keepsTargetsApartAndOwnsItsNames) {
    CheckSumList list;
    std::string name = "borrowed";
    CheckSumPattern pattern;
    pattern.name = name.c_str();
    for (const int target : {0, 3, 3, 8}) {
        pattern.target = static_cast<std::uint8_t>(target);
        list.addPattern(pattern);
    }
    name = "gone";
    EXPECT_EQ(list.count(), 4U);
    EXPECT_EQ(list.records(3).size(), 2U);
    EXPECT_EQ(list.records(8).size(), 1U);
    EXPECT_TRUE(list.records(1).empty());
    EXPECT_TRUE(list.records(9).empty());
    EXPECT_STREQ(list.records(0)[0].name, "borrowed");
    EXPECT_EQ(list.indexOf(9), nullptr);
    EXPECT_EQ(list.indexOf(3), nullptr) << "newer records than the index has";
    list.index();
    EXPECT_NE(list.indexOf(3), nullptr);
    list.reset();
    EXPECT_EQ(list.count(), 0U);
    EXPECT_TRUE(list.records(3).empty());
}

}  // namespace
