#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <string>
#include <thread>
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
    struct Case {
        const char* text;
        int byteValue, shortValue;  // -1: refused
    };
    for (const Case& c : {Case{"", -1, -1}, Case{"aF", 0xAF, 0xAF}, Case{"123", -1, 0x123}, Case{"FFFF", -1, 0xFFFF},
                          Case{"12345", -1, -1}, Case{"1g", -1, -1}, Case{"\xB1", -1, -1}}) {
        unsigned char byteOut = 0x55;
        unsigned short shortOut = 0x5555;
        EXPECT_EQ(VoleUtil::hex2uchar(c.text, &byteOut) ? byteOut : -1, c.byteValue) << c.text;
        EXPECT_EQ(VoleUtil::hex2ushort(c.text, &shortOut) ? shortOut : -1, c.shortValue) << c.text;
    }
    const std::pair<const char*, int> numbers[] = {{"1Fh", 0x1F}, {"Fh", 0},          {"0X1f", 0x1F},
                                                   {"h", 0},      {"0x1Fh", 0},       {"0FFFFFFFFH", -1},
                                                   {"-1", 0},     {"g0012345678", 0}, {"9912345678", 0x12345678}};
    for (const auto& [text, value] : numbers) EXPECT_EQ(VoleUtil::hexstr2i(text), value) << text;
}

TEST(VoleUtilText, questionsAboutBytesIgnoreTheLocale) {
    const char* const earlier = std::setlocale(LC_ALL, nullptr);
    const std::string restore = earlier ? earlier : "C";
    std::setlocale(LC_ALL, "");
    struct Case {
        const char* why;
        std::string bytes;
        bool inter, print;
    };
    const Case cases[] = {{"controls", std::string("\0\1\x1A\x7F", 4), false, false},
                          {"first text control", "\b", true, false},
                          {"escape", "\x1B", true, false},
                          {"high bytes are text but not printable", "\x80", true, false},
                          {"byte 25", std::string(24, '\1') + "a", true, true},
                          {"byte 26 is not looked at", std::string(25, '\1') + "a", false, false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(VoleUtil::hasInterChars(c.bytes.data(), c.bytes.size()), c.inter);
        EXPECT_EQ(VoleUtil::hasPrintChars(c.bytes.data(), c.bytes.size()), c.print);
    }
    EXPECT_EQ(VoleUtil::strcmp_nocase("\xC4", "\xE4"), -1) << "a pair of letters in Latin-1";
    std::setlocale(LC_ALL, restore.c_str());
}

TEST(VoleUtilText, memstrStaysWithinTheHay) {
    const std::vector<char> hay{'a', 'a', 'b', '\0', 'c'};  // No NUL behind it.
    for (const auto& [needle, at] : {std::pair{"ab\0c"s, 1}, {"c"s, 4}, {"cd"s, -1}, {"aab\0cd"s, -1}}) {
        const char* found = VoleUtil::memstr(hay.data(), hay.size(), needle.data(), needle.size());
        EXPECT_EQ(found ? found - hay.data() : -1, at) << needle;
    }
}

TEST(VoleUtilText, strncmpNocaseTakesOverTheCaseOfTheSecondText) {
    struct Case {
        const char* why;
        const char *a, *b;
        std::size_t n;
        int result;
        const char* aAfterwards;
    };
    const Case cases[] = {{"only n bytes are rewritten", "ABCD", "abcd", 2, 0, "abCD"},
                          {"a mismatch rewrites nothing", "ABC", "abd", 3, -1, "ABC"},
                          {"a ends before n and b", "AB", "abc", 3, -1, "AB"},
                          {"both end before n", "AB", "ab", 100, 0, "ab"},
                          {"a pair that is no letter", "[", "{", 1, -1, "["}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        std::vector<char> a = bufferOf(c.a);
        const std::vector<char> b = bufferOf(c.b);
        EXPECT_EQ(VoleUtil::strncmp_nocase(a.data(), b.data(), c.n), c.result);
        EXPECT_STREQ(a.data(), c.aAfterwards);
    }
}

TEST(VoleUtilText, strncmpNocaseMayShareItsFirstText) {
    char shared[] = "adware.shared";
    const auto ask = [&shared](const char* spelling) {
        for (int i = 0; i < 2000; ++i) ASSERT_EQ(VoleUtil::strncmp_nocase(shared, spelling, 13), 0);
    };
    std::thread other(ask, "ADWARE.Shared");
    ask("aDwArE.sHaReD");
    other.join();
    EXPECT_EQ(VoleUtil::strcmp_nocase(shared, "adware.shared"), 0);
}

TEST(VoleUtilText, trimming) {
    for (const auto& [text, trimmed] : {std::pair{" \t a b\r\n", "a b"}, {" \r\n", ""}, {"\va\v", "\va\v"}}) {
        EXPECT_STREQ(VoleUtil::trim(bufferOf(text).data()), trimmed);
    }
    EXPECT_EQ(VoleUtil::chomp(bufferOf("a\r b\r\n\r\n").data()), 4);
    EXPECT_EQ(VoleUtil::strip(bufferOf("ab cd").data(), 4), 2) << "the size cuts the text";
    EXPECT_EQ(VoleUtil::strip(bufferOf("ab ").data(), 5), 3) << "the size is too large";
    EXPECT_EQ(VoleUtil::strip(bufferOf(" \v\f").data(), 4), 0);
    CapturedLog log(CapturedLog::kErrors);
    EXPECT_EQ(VoleUtil::strip(nullptr, 3), 0);
    EXPECT_EQ(log.count("in strip , buf == NULL, or len <= 0"), 1u);
}

TEST(VoleUtilText, partsStayWithinTheText) {
    char* text = VoleUtil::NewStr("ab");
    EXPECT_EQ(VoleUtil::NewCatStr(text, nullptr), text);
    EXPECT_EQ(taken(VoleUtil::NewCatStr(text, text + 1)), "abb") << "a part of the text may be added to it";
    struct Case {
        std::size_t start, length;
        const char* result;
    };
    for (const Case& c : {Case{1, 2, "bc"}, Case{1, 0, "bcd"}, Case{4, 0, ""}, Case{4, 1, "[NULL]"},
                          Case{5, 0, "[NULL]"}, Case{2, SIZE_MAX - 1, "[NULL]"}}) {
        EXPECT_EQ(taken(VoleUtil::SubStr("abcd", c.start, c.length)), c.result) << c.start << '+' << c.length;
    }
    char target[8];
    for (const int none : {-1, 2, 1 << 30}) EXPECT_EQ(VoleUtil::strtokbuf("a,b", none, ",;", target), nullptr) << none;
}

TEST(VoleUtilText, xcheckRefusesWhatLeavesTheRange) {
    char range[16];
    EXPECT_NO_THROW(VoleUtil::xcheck(range + 16, 0, range, 16));
    for (const auto& [offset, length] : {std::pair{0, std::size_t{17}}, {16, 1}, {1, SIZE_MAX}, {-1, 1}}) {
        const auto address = reinterpret_cast<std::uintptr_t>(range) + static_cast<std::uintptr_t>(offset);
        const auto check = [&] { VoleUtil::xcheck(reinterpret_cast<const void*>(address), length, range, 16); };
        EXPECT_EQ(ZOV_SPACE::thrownBy<ZOV_SPACE::Exception>(check), "pointer out of range; take care!") << offset;
    }
}

}  // namespace
