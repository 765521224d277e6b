#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "VoleUtil.h"
#include "support/CapturedLog.h"
#include "support/GoldenRows.h"
#include "support/Thrown.h"

namespace {

using namespace std::string_literals;

// A text in memory of its own, so that the sanitizer sees reads and writes beyond its NUL.
std::vector<char> bufferOf(const std::string& text) { return {text.c_str(), text.c_str() + text.size() + 1}; }

std::string taken(char* text) {
    const MallocText owner(text);
    return text ? std::string(text) : "[NULL]";
}

TEST(VoleUtilMessages, levelDecidesWhatIsPrintedAndLongOnesAreCutBehindThePrefix) {
    const std::vector lines{"in 1"s, std::string(4095, 'y'), "[Unit:7] " + std::string(4095, 'x')};
    for (const auto& [level, printed] : {std::pair{0, 1}, {1, 2}, {2, 2}, {3, 3}}) {
        CapturedLog log(level);
        diag::storePosition("Unit", 7);
        VoleUtil::InMsg("in %d", 1);
        VoleUtil::ErrMsg("%s", std::string(4096, 'y').c_str());
        VoleUtil::DbgMsg("%s", std::string(5000, 'x').c_str());
        EXPECT_EQ(log.lines(), std::vector(lines.begin(), lines.begin() + printed)) << level;
    }
}

TEST(VoleUtilText, hexFields) {
    for (const GoldenRow& row : goldenRows(VOLE_SIGNATURE_ANSWERS, "hex")) {
        unsigned char byte = 0x55;
        unsigned short word = 0x5555;
        std::ostringstream answer;
        answer << std::hex << VoleUtil::hex2uchar(row[0].c_str(), &byte) << ' ' << +byte;
        answer << ' ' << VoleUtil::hex2ushort(row[0].c_str(), &word) << ' ' << word;
        EXPECT_EQ(answer.str(), row[1]) << row[2];
    }
    for (const GoldenRow& row : goldenRows(VOLE_SIGNATURE_ANSWERS, "hexstr2i")) {
        EXPECT_EQ(VoleUtil::hexstr2i(row[0].c_str()), std::stoi(row[1])) << row[2];
    }
}

TEST(VoleUtilText, looksAtBytesAndNotBeyondThem) {
    for (const GoldenRow& row : goldenRows(VOLE_SIGNATURE_ANSWERS, "bytes")) {
        const bool inter = VoleUtil::hasInterChars(row[0].data(), row[0].size());
        const bool print = VoleUtil::hasPrintChars(row[0].data(), row[0].size());
        EXPECT_EQ(std::to_string(inter) + " " + std::to_string(print), row[1]) << row[2];
    }
    const std::vector<char> hay{'a', 'a', 'b', '\0', 'c'};  // No NUL behind it.
    for (const auto& [needle, at] : {std::pair{"ab\0c"s, 1}, {"c"s, 4}, {"cd"s, -1}, {"aab\0cd"s, -1}}) {
        const char* const found = VoleUtil::memstr(hay.data(), hay.size(), needle.data(), needle.size());
        EXPECT_EQ(found ? found - hay.data() : -1, at) << needle;
    }
}

TEST(VoleUtilText, strncmpNocaseTakesOverTheCaseOfTheSecondText) {
    for (const GoldenRow& row : goldenRows(VOLE_SIGNATURE_ANSWERS, "nocase")) {
        std::vector<char> a = bufferOf(row[0]);
        const int result = VoleUtil::strncmp_nocase(a.data(), bufferOf(row[1]).data(), std::stoul(row[2]));
        EXPECT_EQ(std::to_string(result) + " " + a.data(), row[3]) << row[4];
    }
    EXPECT_EQ(VoleUtil::strcmp_nocase("aB[", "Ab["), 0);
}

TEST(VoleUtilText, trimming) {
    EXPECT_STREQ(VoleUtil::trim(bufferOf(" \t a b\r\n").data()), "a b");
    EXPECT_EQ(VoleUtil::chomp(bufferOf("a\r b\r\n\r\n").data()), 4);
    EXPECT_EQ(VoleUtil::strip(bufferOf("ab cd").data(), 4), 2) << "the size cuts the text";
    EXPECT_EQ(VoleUtil::strip(bufferOf("ab ").data(), 5), 3) << "the size is too large";
    EXPECT_EQ(VoleUtil::strip(bufferOf(" \v\f").data(), 4), 0);
    CapturedLog log(CapturedLog::kErrors);
    EXPECT_EQ(VoleUtil::strip(nullptr, 3), 0);
    EXPECT_EQ(log.count("in strip , buf == NULL, or len <= 0"), 1u);
}

TEST(VoleUtilText, partsStayWithinTheTextAndTheRange) {
    char* text = VoleUtil::NewStr("ab");
    EXPECT_EQ(taken(VoleUtil::NewCatStr(text, text + 1)), "abb") << "a part of the text may be added to it";
    for (const GoldenRow& row : goldenRows(VOLE_SIGNATURE_ANSWERS, "part")) {
        const auto start = static_cast<std::size_t>(std::stoi(row[0])),
                   length = static_cast<std::size_t>(std::stoi(row[1]));
        EXPECT_EQ(taken(VoleUtil::SubStr("abcd", start, length)), row[2]) << row[3];
    }
    char range[16];
    for (const int none : {-1, 2, 1 << 30}) EXPECT_EQ(VoleUtil::strtokbuf("a,b", none, ",;", range), nullptr) << none;
    EXPECT_NO_THROW(VoleUtil::xcheck(range + 16, 0, range, 16));
    for (const auto& [offset, length] : {std::pair{0, std::size_t{17}}, {16, 1}, {1, SIZE_MAX}, {-1, 1}}) {
        const auto address = reinterpret_cast<std::uintptr_t>(range) + static_cast<std::uintptr_t>(offset);
        const auto check = [&] { VoleUtil::xcheck(reinterpret_cast<const void*>(address), length, range, 16); };
        EXPECT_EQ(ZOV_SPACE::thrownBy<ZOV_SPACE::Exception>(check), "pointer out of range; take care!") << offset;
    }
}

}  // namespace
