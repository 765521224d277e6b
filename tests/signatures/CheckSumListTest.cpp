#include "CheckSumList.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/Thrown.h"

namespace {

using Fields = std::vector<std::string>;

const Fields kGood = {"03", "0201", "fff0", "1A", "01020304", "a0b0c0d0", "12", "2", "0A0B0C0D", "Name"};

std::string lineOf(const Fields& fields) {
    std::string line;
    for (const std::string& field : fields) line += (line.empty() ? "" : ":") + field;
    return line;
}

void expectAnswer(const std::string& line, const std::string& fault) {
    CheckSumList list;
    EXPECT_EQ(ZOV_SPACE::thrownBy<ZOV_SPACE::Exception>([&] { list.addString(line.c_str()); }), fault) << line;
    EXPECT_EQ(list.count(), fault == "<nothing>" ? 1U : 0U) << line;
    for (const CheckSumPattern& p : list.records(kTargetPe)) {
        EXPECT_STREQ(p.name, "Name") << line;
        if (line != lineOf(kGood)) continue;
        const std::vector<long long> values{p.offsetType, p.offsetParameter, p.offset1, p.length1,  p.checkString,
                                            p.checkSum1,  p.offset2,         p.length2, p.checkSum2};
        EXPECT_EQ(values,
                  (std::vector<long long>{kFromEntryPoint, 1, -16, 0x1A, 0x04030201, 0xd0c0b0a0, 0x12, 2, 0x0D0C0B0A}));
    }
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
        const std::string line = lineOf(Fields(kGood.begin(), kGood.begin() + static_cast<std::ptrdiff_t>(given)));
        expectAnswer(line, faults[given]);
        expectAnswer(line + ":", faults[given]);  // An empty last field is a missing one.
    }
}

TEST(CheckSumList, storesARecordOrSaysWhatIsWrongWithAField) {
    const struct {
        std::size_t field;
        const char *text, *fault = "<nothing>";
    } cases[] = {
        {0, "03"},
        {0, "%s", "Malformed chk-sum string :fail to get target, [%s]"},
        {0, "02", "Malformed chk-sum string :offsetType1 > 1, but targ != pe "},
        {0, "09", "Malformed chk-sum :target[9] is greater than 9"},
        {1, "%d", "Malformed signature :[%d] length is not 4"},
        {1, "0300"},
        {1, "0400", "Malformed chk-sum :offsetType1[0]=[4] is known"},
        {2, "00000", "Malformed chk-sum string :fail to get offset1, [00000]"},
        {3, "0x", "Malformed chk-sum :fail to get length1, [0x]"},
        {4, "0102030\xE9", "Malformed [0102030\xE9] in chk-sum string ."},
        {5, "010203040", "Malformed signature :[010203040] length is not 8"},
        {6, "10000", "Malformed chk-sum :fail to get offset2, [10000]"},
        {7, "100", "Malformed chk-sum :fail to get length2[100]"},
        {8, "010203", "Malformed signature :[010203] length is not 8"},
        {9, "Name:more:fields"},
    };
    for (const auto& c : cases) {
        Fields fields = kGood;
        fields[c.field] = c.text;
        expectAnswer(lineOf(fields), c.fault);
    }
}

}  // namespace
