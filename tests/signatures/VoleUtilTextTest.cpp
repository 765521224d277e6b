#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "Exception.h"
#include "VoleUtil.h"
#include "support/CapturedLog.h"

namespace {

// A text in memory of its own, so that the sanitizer sees reads and writes beyond its NUL.
std::vector<char> bufferOf(const std::string& text) { return {text.c_str(), text.c_str() + text.size() + 1}; }

std::string taken(char* text) {
    const MallocText owner(text);
    return text ? std::string(text) : "[NULL]";
}

TEST(VoleUtilMessages, levelAndCallbackDecideWhatIsPrinted) {
    struct Case {
        int level;
        std::vector<std::string> lines;
    };
    const Case cases[] = {
        {0, {"in 1"}}, {1, {"in 1", "err 2"}}, {2, {"in 1", "err 2"}}, {3, {"in 1", "err 2", "[Unit:7] dbg 3"}}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.level);
        CapturedLog log(c.level);
        diag::storePosition("Unit", 7);
        VoleUtil::InMsg("in %d", 1);
        VoleUtil::ErrMsg("err %d", 2);
        VoleUtil::DbgMsg("dbg %s", "3");
        EXPECT_EQ(log.lines(), c.lines);
    }
}

TEST(VoleUtilMessages, longMessagesAreCutAt4095BytesBehindThePrefix) {
    CapturedLog log;
    diag::storePosition("Unit", 7);
    VoleUtil::DbgMsg("%s", std::string(5000, 'x').c_str());
    VoleUtil::ErrMsg("%s", std::string(4096, 'y').c_str());
    EXPECT_EQ(log.lines(), (std::vector{"[Unit:7] " + std::string(4095, 'x'), std::string(4095, 'y')}));
}

TEST(VoleUtilText, alignment) {
    struct Case {
        std::uint32_t value, unit, down, up;
    };
    for (const Case& c : {Case{0, 512, 0, 0}, Case{1, 512, 0, 512}, Case{512, 512, 512, 512}, Case{7, 0, 7, 7},
                          Case{0xFFFFFFFF, 512, 0xFFFFFE00, 0}}) {
        EXPECT_EQ(VoleUtil::alignDown(c.value, c.unit), c.down) << c.value;
        EXPECT_EQ(VoleUtil::alignUp(c.value, c.unit), c.up) << c.value;
    }
}

TEST(VoleUtilText, hexFields) {
    struct Case {
        const char* why;
        const char* text;
        int byteValue, shortValue;  // -1: refused
    };
    const Case cases[] = {
        {"no digits", "", -1, -1},           {"one digit", "a", 0xA, 0xA},
        {"both cases", "aF", 0xAF, 0xAF},    {"too long for a byte", "123", -1, 0x123},
        {"four digits", "FFFF", -1, 0xFFFF}, {"too long", "12345", -1, -1},
        {"not hex", "1g", -1, -1},           {"blank", " 1", -1, -1},
        {"high byte", "\xB1", -1, -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        unsigned char byteOut = 0x55;
        unsigned short shortOut = 0x5555;
        EXPECT_EQ(VoleUtil::hex2uchar(c.text, &byteOut) ? byteOut : -1, c.byteValue);
        EXPECT_EQ(VoleUtil::hex2ushort(c.text, &shortOut) ? shortOut : -1, c.shortValue);
    }
    unsigned char out = 0;
    EXPECT_FALSE(VoleUtil::hex2uchar(nullptr, &out));
    EXPECT_FALSE(VoleUtil::hex2ushort("1", nullptr));
}

TEST(VoleUtilText, hexstr2i) {
    struct Case {
        const char* text;
        int value;
    };
    const Case cases[] = {{"1Fh", 31},
                          {"Fh", 0},
                          {"0x", 0},
                          {"0X1f", 31},
                          {"1f", 31},
                          {"h", 0},
                          {"", 0},
                          {"0x1Fh", 0},
                          {"12g4", 0},
                          {"0FFFFFFFFH", -1},
                          {"x1", 0},
                          {"-1", 0},
                          {"80000000", static_cast<int>(0x80000000u)},
                          {"9912345678", 0x12345678},
                          {"g0012345678", 0}};
    for (const Case& c : cases) EXPECT_EQ(VoleUtil::hexstr2i(c.text), c.value) << c.text;
    EXPECT_EQ(VoleUtil::hexstr2i(nullptr), 0);
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
    const Case cases[] = {{"nothing", "", false, false},
                          {"controls", std::string("\0\1\x1A\x7F", 4), false, false},
                          {"first and last text controls", "\b", true, false},
                          {"carriage return", "\r", true, false},
                          {"escape", "\x1B", true, false},
                          {"high bytes are text but not printable", "\x80", true, false},
                          {"last byte", "\xFF", true, false},
                          {"blank", " ", true, true},
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

TEST(VoleUtilText, stringQuestions) {
    EXPECT_TRUE(VoleUtil::isDigit(""));
    EXPECT_TRUE(VoleUtil::isDigit("0123456789"));
    EXPECT_FALSE(VoleUtil::isDigit("12a"));
    EXPECT_FALSE(VoleUtil::isDigit("-1"));
    EXPECT_TRUE(VoleUtil::endsWith("a.hdb", ".hdb"));
    EXPECT_TRUE(VoleUtil::endsWith("a", ""));
    EXPECT_FALSE(VoleUtil::endsWith("hdb", ".hdb"));
    EXPECT_FALSE(VoleUtil::endsWith("a.HDB", ".hdb"));
    EXPECT_STREQ(VoleUtil::FirstChar(" \t\r\nx "), "x ");
    EXPECT_STREQ(VoleUtil::FirstChar(" "), "");
    EXPECT_STREQ(VoleUtil::FirstSpace("a\r\tb"), "\tb");
    EXPECT_STREQ(VoleUtil::FirstSpace("ab"), "");
}

TEST(VoleUtilText, memstr) {
    struct Case {
        const char* why;
        std::string hay, needle;
        int at;
    };
    const Case cases[] = {{"at the start", "abc", "ab", 0},
                          {"at the end", "abcd", "cd", 2},
                          {"whole", "abc", "abc", 0},
                          {"after a false start", "aaab", "aab", 1},
                          {"cut off at the end", "xxab", "abc", -1},
                          {"longer than the hay", "ab", "abc", -1},
                          {"across NULs", std::string("a\0b\0c", 5), std::string("\0c", 2), 3},
                          {"nothing in nothing", "", "", 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const std::vector<char> hay(c.hay.begin(), c.hay.end());  // No NUL behind it.
        const char empty = 0;
        const char* start = hay.empty() ? &empty : hay.data();
        const char* found = VoleUtil::memstr(start, hay.size(), c.needle.data(), c.needle.size());
        EXPECT_EQ(found ? found - start : -1, c.at);
    }
}

TEST(VoleUtilText, compareWithoutCase) {
    struct Case {
        const char *a, *b;
        int result;
    };
    for (const Case& c : {Case{"abc", "ABC", 0}, Case{"abc", "abd", -1}, Case{"abd", "abc", -1}, Case{"abc", "ab", -1},
                          Case{"", "", 0}, Case{nullptr, "a", -1}, Case{"[", "{", -1}}) {
        EXPECT_EQ(VoleUtil::strcmp_nocase(c.a, c.b), c.result) << c.b;
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
    const Case cases[] = {{"equal but for case", "Adware.X", "aDWARE.x", 8, 0, "aDWARE.x"},
                          {"only n bytes are rewritten", "ABCD", "abcd", 2, 0, "abCD"},
                          {"a mismatch rewrites nothing", "ABC", "abd", 3, -1, "ABC"},
                          {"b is longer than n", "AB", "abc", 2, 0, "ab"},
                          {"a ends before n and b", "AB", "abc", 3, -1, "AB"},
                          {"both end before n", "AB", "ab", 100, 0, "ab"},
                          {"nothing to compare", "A", "b", 0, 0, "A"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        std::vector<char> a = bufferOf(c.a);
        const std::vector<char> b = bufferOf(c.b);
        EXPECT_EQ(VoleUtil::strncmp_nocase(a.data(), b.data(), c.n), c.result);
        EXPECT_STREQ(a.data(), c.aAfterwards);
    }
    EXPECT_EQ(VoleUtil::strncmp_nocase(nullptr, "a", 1), -1);
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
    struct Case {
        const char *text, *set, *left, *right, *both;  // set null: the blanks
    };
    const Case cases[] = {{" \t a b\r\n", nullptr, "a b\r\n", " \t a b", "a b"},
                          {" \r\n", nullptr, "", "", ""},
                          {"", nullptr, "", "", ""},
                          {"\va\v", nullptr, "\va\v", "\va\v", "\va\v"},
                          {"xyaxby", "xy", "axby", "xyaxb", "axb"},
                          {" a ", "", " a ", " a ", " a "}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        std::vector<char> left = bufferOf(c.text), right = left, both = left;
        char* results[] = {c.set ? VoleUtil::ltrimx(left.data(), c.set) : VoleUtil::ltrim(left.data()),
                           c.set ? VoleUtil::rtrimx(right.data(), c.set) : VoleUtil::rtrim(right.data()),
                           c.set ? VoleUtil::trimx(both.data(), c.set) : VoleUtil::trim(both.data())};
        EXPECT_STREQ(results[0], c.left);
        EXPECT_STREQ(results[1], c.right);
        EXPECT_STREQ(results[2], c.both);
        EXPECT_EQ(results[2], both.data());
    }
    EXPECT_EQ(VoleUtil::trim(nullptr), nullptr);
    std::vector<char> text = bufferOf(" a ");
    EXPECT_EQ(VoleUtil::trimx(text.data(), nullptr), nullptr);
    EXPECT_STREQ(text.data(), " a ");
}

TEST(VoleUtilText, chompAndStrip) {
    std::vector<char> line = bufferOf("a\r b\r\n\r\n");
    EXPECT_EQ(VoleUtil::chomp(line.data()), 4);
    EXPECT_STREQ(line.data(), "a\r b");
    EXPECT_EQ(VoleUtil::chomp(nullptr), -1);

    struct Case {
        const char* why;
        const char* text;
        int size, result;
        const char* left;
    };
    const Case cases[] = {{"exact size", "ab \t", 5, 2, "ab"},
                          {"size cuts the text", "ab cd", 4, 2, "ab"},
                          {"size too large", "ab ", 5, 3, "ab "},
                          {"only space", " \v\f", 4, 0, ""},
                          {"size of the empty text", "abc", 1, 0, ""}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        std::vector<char> text = bufferOf(c.text);
        EXPECT_EQ(VoleUtil::strip(text.data(), c.size), c.result);
        EXPECT_STREQ(text.data(), c.left);
    }
    std::vector<char> text = bufferOf("ab  ");
    EXPECT_EQ(VoleUtil::strstrip(text.data()), 2);
    EXPECT_EQ(VoleUtil::strstrip(nullptr), 0);

    CapturedLog log(CapturedLog::kErrors);
    EXPECT_EQ(VoleUtil::strip(nullptr, 3), 0);
    EXPECT_EQ(VoleUtil::strip(text.data(), 0), 0);
    EXPECT_EQ(log.count("in strip , buf == NULL, or len <= 0"), 2u);
}

TEST(VoleUtilText, strrcpyReturnsTheEnd) {
    char target[8];
    EXPECT_EQ(VoleUtil::strrcpy(VoleUtil::strrcpy(target, "abc"), "de"), target + 5);
    EXPECT_STREQ(target, "abcde");
    EXPECT_EQ(VoleUtil::strrcpy(target, target), target);
    EXPECT_EQ(VoleUtil::strrcpy(target, nullptr), nullptr);
}

TEST(VoleUtilText, strtokbuf) {
    struct Case {
        const char* source;
        int index;
        const char* field;  // null: none
    };
    const Case cases[] = {{"a,,b", 0, "a"},   {"a,,b", 1, "b"},       {"a,,b", 2, nullptr}, {",a", 0, nullptr},
                          {",;a", 1, "a"},    {"a,", 1, nullptr},     {"", 0, nullptr},     {"ab;cd", 1, "cd"},
                          {"a", -1, nullptr}, {"a", 1 << 30, nullptr}};
    for (const Case& c : cases) {
        char target[8] = "unset";
        EXPECT_STREQ(VoleUtil::strtokbuf(c.source, c.index, ",;", target), c.field) << c.source << c.index;
    }
}

TEST(VoleUtilText, newStrings) {
    EXPECT_EQ(taken(VoleUtil::NewStr("ab")), "ab");
    EXPECT_EQ(taken(VoleUtil::NewStr(nullptr)), "[NULL]");
    EXPECT_EQ(taken(VoleUtil::AddStr("ab", "cd")), "abcd");
    EXPECT_EQ(taken(VoleUtil::AddStr(nullptr, "cd")), "cd");
    EXPECT_EQ(taken(VoleUtil::AddStr("ab", nullptr)), "ab");
    EXPECT_EQ(taken(VoleUtil::AddStr(nullptr, nullptr)), "[NULL]");
    EXPECT_EQ(taken(VoleUtil::AddStr("", "")), "");
    EXPECT_EQ(taken(VoleUtil::NewCatStr(nullptr, "b")), "b");
    char* text = VoleUtil::NewStr("ab");
    EXPECT_EQ(VoleUtil::NewCatStr(text, nullptr), text);
    EXPECT_EQ(taken(VoleUtil::NewCatStr(text, text + 1)), "abb") << "a part of the text may be added to it";
}

TEST(VoleUtilText, subStrStaysWithinTheText) {
    struct Case {
        std::size_t start, length;
        const char* result;
    };
    for (const Case& c : {Case{1, 2, "bc"}, Case{1, 0, "bcd"}, Case{0, 4, "abcd"}, Case{4, 0, ""}, Case{4, 1, "[NULL]"},
                          Case{5, 0, "[NULL]"}, Case{2, SIZE_MAX - 1, "[NULL]"}}) {
        EXPECT_EQ(taken(VoleUtil::SubStr("abcd", c.start, c.length)), c.result) << c.start << '+' << c.length;
    }
}

TEST(VoleUtilText, xcheckRefusesWhatLeavesTheRange) {
    char range[16];
    EXPECT_NO_THROW(VoleUtil::xcheck(range, 16, range, 16));
    EXPECT_NO_THROW(VoleUtil::xcheck(range + 16, 0, range, 16));
    for (const auto& [offset, length] : {std::pair{0, std::size_t{17}}, {16, 1}, {1, SIZE_MAX}, {-1, 1}}) {
        const void* pointer = reinterpret_cast<const void*>(reinterpret_cast<std::uintptr_t>(range) +
                                                            static_cast<std::uintptr_t>(offset));
        try {
            VoleUtil::xcheck(pointer, length, range, 16);
            ADD_FAILURE() << offset << '+' << length;
        } catch (ZOV_SPACE::Exception& e) {
            EXPECT_EQ(e.getMessage(), "pointer out of range; take care!");
        }
    }
}

}  // namespace
