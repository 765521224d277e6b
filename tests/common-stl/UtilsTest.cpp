#include "Utils.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>

#include "Ascii.h"
#include "Exception.h"

namespace ZOV_SPACE {
namespace {

TEST(StringHelper, comparesWithNullsAndCase) {
    struct Case {
        const char *a, *b;
        bool equal, equalIgnoringCase;
    };
    const Case cases[] = {
        {nullptr, nullptr, true, true}, {nullptr, "", false, false}, {"", nullptr, false, false},
        {"", "", true, true},           {"abc", "abc", true, true},  {"aBc", "Abc", false, true},
        {"abc", "abcd", false, false},  {"@", "`", false, false},    {"\xC4", "\xE4", false, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.a ? c.a : "null") + " " + (c.b ? c.b : "null"));
        EXPECT_EQ(StringHelper::equals(c.a, c.b), c.equal);
        EXPECT_EQ(StringHelper::equalsIgnoreCase(c.a, c.b), c.equalIgnoringCase);
    }
}

TEST(StringHelper, findsPrefixesAndSuffixes) {
    struct Case {
        const char *text, *part;
        bool starts, startsIgnoringCase, ends, endsIgnoringCase;
    };
    const Case cases[] = {
        {nullptr, "a", false, false, false, false}, {"a", nullptr, false, false, false, false},
        {"abc", "", true, true, true, true},        {"", "", true, true, true, true},
        {"ab", "abc", false, false, false, false},  {"bc", "abc", false, false, false, false},
        {"abab", "ab", true, true, true, true},     {"ABcB", "ab", false, true, false, false},
        {"xAB", "ab", false, false, false, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.text ? c.text : "null") + " " + (c.part ? c.part : "null"));
        EXPECT_EQ(StringHelper::startsWith(c.text, c.part), c.starts);
        EXPECT_EQ(StringHelper::startsWithIgnoreCase(c.text, c.part), c.startsIgnoringCase);
        EXPECT_EQ(StringHelper::endsWith(c.text, c.part), c.ends);
        EXPECT_EQ(StringHelper::endsWithIgnoreCase(c.text, c.part), c.endsIgnoringCase);
    }
}

TEST(StringHelper, trimsBothEnds) {
    for (const auto& [text, chars, expected] :
         {std::tuple{"xyaxbyx", "xy", "axb"}, {"xyx", "xy", ""}, {"", "xy", ""}, {" a ", "", " a "}}) {
        std::string trimmed = text;
        StringHelper::trim(trimmed, chars);
        EXPECT_EQ(trimmed, expected);
    }
    std::string lines = "\r\n\t a b \t\n";
    Utils::trimString(lines);
    EXPECT_EQ(lines, "a b");
    Utils::trimString(lines, "a");
    EXPECT_EQ(lines, " b");
}

TEST(StringHelper, convertsNumbersAndBooleans) {
    EXPECT_EQ(StringHelper::ntoa(INT_MIN), "-2147483648");
    EXPECT_EQ(StringHelper::ltoa(-1L), "-1");
    EXPECT_TRUE(StringHelper::atob("TrUE"));
    for (const char* text : {"true ", "yes", "1", "", static_cast<const char*>(nullptr)}) {
        EXPECT_FALSE(StringHelper::atob(text));
    }
    EXPECT_STREQ(StringHelper::btoa(true), "true");
    EXPECT_STREQ(StringHelper::btoa(false), "false");
}

TEST(StringHelper, replacesAndAlwaysEnds) {
    struct Case {
        const char *why, *text, *from, *to, *expected;
    };
    const Case cases[] = {
        {"every occurrence", "a-b-c", "-", "+", "a+b+c"},
        {"what a replacement brings together", "aab", "ab", "b", "b"},
        {"the new occurrence begins before the replacement", "xaabbx", "ab", "", "xx"},
        {"earlier occurrences come first", "aabab", "aba", "b", "abb"},
        {"same length, in steps", "bbaa", "ba", "ab", "aabb"},
        {"longer, with an end", "aab", "ab", "bba", "bbbbaa"},
        {"contained in its replacement", "a.a", "a", "aa", "aa.aa"},
        {"replaced by itself", "aaa", "a", "a", "aaa"},
        {"no start", "abc", nullptr, "x", "abc"},
        {"no replacement", "abc", "a", nullptr, "abc"},
        {"an empty text occurs nowhere", "abc", "", "x", "abc"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        std::string text = c.text;
        StringHelper::replace(text, c.from, c.to);
        EXPECT_EQ(text, c.expected);
    }
    std::string endless = "aab";  // aab -> abbaa -> bbaabaa, which has aab in it again.
    StringHelper::replace(endless, "ab", "bbaa");
    EXPECT_EQ(endless.size(), 3 + 2 * StringHelper::kMaxGrowingReplacements);
}

TEST(StringHelper, changesCaseOfAsciiLettersOnly) {
    std::string text = "aZ[`{\xE4";
    StringHelper::toupper(text);
    EXPECT_EQ(text, "AZ[`{\xE4");
    StringHelper::tolower(text);
    EXPECT_EQ(text, "az[`{\xE4");
    StringHelper::replaceChar(text, '`', 'z');
    EXPECT_EQ(text, "az[z{\xE4");
}

TEST(Utils, takesFieldsBetweenRunsOfSeparators) {
    struct Case {
        const char *why, *line;
        int index;
        const char *separators, *expected;
    };
    const Case cases[] = {
        {"first", "12:ab::cd", 0, ":", "12"},
        {"a run is one boundary", "12:ab::cd", 2, ":", "cd"},
        {"past the last", "12:ab::cd", 3, ":", nullptr},
        {"far past the last", "12:ab::cd", INT_MAX, ":", nullptr},
        {"a leading separator leaves field 0 empty", ":x", 0, ":", nullptr},
        {"and field 1 after it", ":x", 1, ":", "x"},
        {"a leading run counts once", ":::x", 1, ":", "x"},
        {"nothing after the last separator", "a:", 1, ":", nullptr},
        {"only separators", "::", 1, ":", nullptr},
        {"several separators", "a,;b;c", 1, ",;", "b"},
        {"several separators, last", "a,;b;c", 2, ",;", "c"},
        {"several separators, past", "a,;b;", 2, ",;", nullptr},
        {"no separators", "a:b", 0, "", "a:b"},
        {"no separators, no second field", "a:b", 1, "", nullptr},
        {"null separators", "a:b", 0, nullptr, "a:b"},
        {"empty line", "", 0, ":", nullptr},
        {"null line", nullptr, 0, ":", nullptr},
        {"negative index", "a:b", -1, ":", nullptr},
        {"a byte above 127 separates", "a\xFF\xFFz", 1, "\xFF", "z"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const std::unique_ptr<char[]> copy(Utils::strToK(c.line, c.index, c.separators));
        EXPECT_STREQ(copy.get(), c.expected);
    }
    const std::string_view whole("a:bcd:e");
    EXPECT_EQ(Utils::field(whole.substr(0, 4), 1, ":"), "bc") << "stays inside the view";
}

TEST(Utils, parsesNumbersAsEver) {
    struct Case {
        const char* why;
        std::string_view text;
        int base, expected;
    };
    using namespace std::string_view_literals;
    const Case cases[] = {
        {"letters count from 'A'", "1F", 16, 21},
        {"'A' is 0", "A", 16, 0},
        {"lower case counts as 32 and up", "1a", 16, 48},
        {"octal", "17", 8, 15},
        {"any other base means 10", "17", 7, 17},
        {"no bytes", "", 10, 0},
        {"blanks and zero bytes before it", " \0 7"sv, 10, 7},
        {"ends at a blank", "7 8", 10, 7},
        {"ends at a zero byte", "7\0008"sv, 10, 7},
        {"ends at what is no hexadecimal digit", "7z", 8, 7},
        {"wraps at 32 bits", "4294967297", 10, 1},
        {"the sign bit", "80000000", 16, INT_MIN},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(Utils::parseInt(c.text.data(), static_cast<int>(c.text.size()), c.base), c.expected);
    }
    EXPECT_EQ(Utils::parseInt("7", -1, 10), 0);
}

TEST(Utils, refusesWrongDigits) {
    for (const auto& [text, base, message] : {std::tuple{"9", 8, "invalid oct number"},
                                              {"1a", 8, "invalid oct number"},
                                              {"g", 16, "invalid hex number"},
                                              {"-1", 10, "invalid dec number"},
                                              {"1f", 10, "invalid dec number"}}) {
        SCOPED_TRACE(text);
        try {
            Utils::parseInt(text, static_cast<int>(std::strlen(text)), base);
            ADD_FAILURE() << "accepted";
        } catch (Exception& e) {
            EXPECT_EQ(e.getMessage(), message);
            EXPECT_EQ(e.getErrorLocation().substr(0, 11), "Utils, line");
        }
    }
}

TEST(Utils, looksAtBytes) {
    EXPECT_TRUE(Utils::isdigits("0123", nullptr));
    EXPECT_TRUE(Utils::isdigits("1.5-", ".-"));
    EXPECT_FALSE(Utils::isdigits("1.5", nullptr));
    EXPECT_FALSE(Utils::isdigits("", "x"));
    EXPECT_FALSE(Utils::isdigits(nullptr, nullptr));
    EXPECT_TRUE(Utils::compareBytes(nullptr, nullptr, 0));
    EXPECT_TRUE(Utils::compareBytes("a\0b", "a\0c", 2));
    EXPECT_FALSE(Utils::compareBytes("a\0b", "a\0c", 3));
    EXPECT_TRUE(Utils::memstr("ab\0cd", 5, "\0c", 2));
    EXPECT_FALSE(Utils::memstr("ab\0cd", 3, "\0c", 2));
    EXPECT_FALSE(Utils::memstr("ab", 2, "abc", 3));
    EXPECT_TRUE(Utils::memstr(nullptr, 0, "", 0));
}

TEST(Utils, turnsEveryByteIntoHexAndBack) {
    for (int byte = 0; byte < 256; ++byte) {
        const char high = Utils::CHAR_TO_HEX(byte >> 4), low = Utils::CHAR_TO_HEX(byte);
        EXPECT_EQ(static_cast<unsigned char>(Utils::HEX_TO_CHAR(high, low)), byte);
    }
    EXPECT_EQ(Utils::CHAR_TO_HEX(0xAB), 'B');
    EXPECT_EQ(Utils::HEX_TO_CHAR('?', '\xFF'), '\0');
}

TEST(Utils, formats) {
    EXPECT_EQ(Utils::formatString("%s:%d", "a", 7), "a:7");
    EXPECT_EQ(Utils::formatString("%5000d", 1).size(), 4095u);
    const auto shape = [](std::string text) {
        for (char& c : text) c = ascii::isDigit(c) ? '9' : c;
        return text;
    };
    EXPECT_EQ(shape(Utils::getLocalDate()), "9999-99-99");
    EXPECT_EQ(shape(Utils::getLocalTime()), "99:99:99");
}

TEST(Utils, splitsIntoTokens) {
    std::vector<std::string> list = {"old"};
    std::string seen;
    const auto note = [](const std::string& token, void* argument) {
        static_cast<std::string*>(argument)->append(token).append("|");
    };
    Utils::stringTokenizer(",a,;bc,", list, ",;", note, &seen);
    EXPECT_EQ(list, (std::vector<std::string>{"a", "bc"}));
    EXPECT_EQ(seen, "a|bc|");
    Utils::stringTokenizer("a b", list, " ", note, nullptr);
    EXPECT_EQ(list.size(), 2u) << "no argument, no call";
    Utils::stringTokenizer(nullptr, list, " ");
    EXPECT_TRUE(list.empty());
}

}  // namespace
}  // namespace ZOV_SPACE
