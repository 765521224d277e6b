#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "VoleUtil.h"
#include "support/CapturedLog.h"
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
    using Field = std::tuple<const char*, int, int>;  // -1: refused
    for (const auto& [text, byteValue, shortValue] :
         {Field{"", -1, -1}, Field{"aF", 0xAF, 0xAF}, Field{"123", -1, 0x123}, Field{"12345", -1, -1},
          Field{"1g", -1, -1}}) {
        unsigned char byteOut = 0x55;
        unsigned short shortOut = 0x5555;
        EXPECT_EQ(VoleUtil::hex2uchar(text, &byteOut) ? byteOut : -1, byteValue) << text;
        EXPECT_EQ(VoleUtil::hex2ushort(text, &shortOut) ? shortOut : -1, shortValue) << text;
        EXPECT_EQ(shortOut, *text == '1' && text[1] == 'g' ? 1 : shortValue < 0 ? 0x5555 : shortValue) << text;
    }
    const std::pair<const char*, int> numbers[] = {
        {"1Fh", 0x1F}, {"Fh", 0},          {"0X1f", 0x1F}, {"h", 0},
        {"0x1Fh", 0},  {"0FFFFFFFFH", -1}, {"-1", 0},      {"9912345678", 0x12345678}};
    for (const auto& [text, value] : numbers) EXPECT_EQ(VoleUtil::hexstr2i(text), value) << text;
}

TEST(VoleUtilText, looksAtBytesAndNotBeyondThem) {
    const std::tuple<const char*, std::string, bool, bool> samples[] = {
        {"controls", std::string("\0\1\x1A\x7F", 4), false, false},
        {"escape", "\x1B", true, false},
        {"high bytes are text but not printable", "\x80", true, false},
        {"byte 25", std::string(24, '\1') + "a", true, true},
        {"byte 26 is not looked at", std::string(25, '\1') + "a", false, false}};
    for (const auto& [why, bytes, inter, print] : samples) {
        EXPECT_EQ(VoleUtil::hasInterChars(bytes.data(), bytes.size()), inter) << why;
        EXPECT_EQ(VoleUtil::hasPrintChars(bytes.data(), bytes.size()), print) << why;
    }
    const std::vector<char> hay{'a', 'a', 'b', '\0', 'c'};  // No NUL behind it.
    for (const auto& [needle, at] : {std::pair{"ab\0c"s, 1}, {"c"s, 4}, {"cd"s, -1}, {"aab\0cd"s, -1}}) {
        const char* const found = VoleUtil::memstr(hay.data(), hay.size(), needle.data(), needle.size());
        EXPECT_EQ(found ? found - hay.data() : -1, at) << needle;
    }
}

TEST(VoleUtilText, strncmpNocaseTakesOverTheCaseOfTheSecondText) {
    const std::tuple<const char*, const char*, const char*, std::size_t, int, const char*> cases[] = {
        {"only n bytes are rewritten", "ABCD", "abcd", 2, 0, "abCD"},
        {"a mismatch rewrites nothing", "ABC", "abd", 3, -1, "ABC"},
        {"a ends before n and b", "AB", "abc", 3, -1, "AB"},
        {"both end before n", "AB", "ab", 100, 0, "ab"},
        {"a pair that is no letter", "[", "{", 1, -1, "["}};
    for (const auto& [why, first, second, n, result, afterwards] : cases) {
        std::vector<char> a = bufferOf(first);
        EXPECT_EQ(VoleUtil::strncmp_nocase(a.data(), bufferOf(second).data(), n), result) << why;
        EXPECT_STREQ(a.data(), afterwards) << why;
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
    using Part = std::tuple<std::size_t, std::size_t, const char*>;
    for (const auto& [start, length, result] :
         {Part{1, 2, "bc"}, Part{1, 0, "bcd"}, Part{4, 0, ""}, Part{4, 1, "[NULL]"}, Part{5, 0, "[NULL]"},
          Part{2, SIZE_MAX - 1, "[NULL]"}}) {
        EXPECT_EQ(taken(VoleUtil::SubStr("abcd", start, length)), result) << start << '+' << length;
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
