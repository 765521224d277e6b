#include "Utils.h"

#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <tuple>

#include "support/Thrown.h"

namespace ZOV_SPACE {
namespace {

using namespace std::string_view_literals;

TEST(StringHelper, comparesAsciiLettersOnlyWithoutCase) {
    EXPECT_TRUE(StringHelper::equalsIgnoreCase("aBc", "Abc") && StringHelper::endsWithIgnoreCase("xAB", "ab"));
    for (const auto& [a, b] : {std::pair{"@", "`"}, {"\xC4", "\xE4"}, {"", nullptr}, {"bc", "abc"}}) {
        EXPECT_FALSE(StringHelper::equalsIgnoreCase(a, b) || StringHelper::endsWithIgnoreCase(a, b)) << a;
    }
    EXPECT_FALSE(StringHelper::startsWithIgnoreCase("ab", "abc"));
}

TEST(StringHelper, replacesAndAlwaysEnds) {
    const std::tuple<const char*, std::string, const char*, const char*, const char*> cases[] = {
        {"the new occurrence begins before the replacement", "xaabbx", "ab", "", "xx"},
        {"longer, with an end", "aab", "ab", "bba", "bbbbaa"},
        {"contained in its replacement", "a.a", "a", "aa", "aa.aa"},
        {"no start", "abc", nullptr, "x", "abc"},
        {"an empty text occurs nowhere", "abc", "", "x", "abc"},
    };
    for (auto [why, text, from, to, expected] : cases) {
        StringHelper::replace(text, from, to);
        EXPECT_EQ(text, expected) << why;
    }
    std::string endless = "aab";  // aab -> abbaa -> bbaabaa, which has aab in it again.
    StringHelper::replace(endless, "ab", "bbaa");
    EXPECT_EQ(endless.size(), 3 + 2 * StringHelper::kMaxGrowingReplacements);
}

TEST(Utils, takesFieldsBetweenRunsOfSeparators) {
    const std::tuple<const char*, int, const char*, const char*> cases[] = {
        {"12:ab::cd", 0, ":", "12"},    {"12:ab::cd", 2, ":", "cd"},   {"12:ab::cd", 3, ":", nullptr},
        {"a:b", INT_MAX, ":", nullptr}, {":x", 0, ":", nullptr},       {":::x", 1, ":", "x"},
        {"a:", 1, ":", nullptr},        {"a,;b;c", 1, ",;", "b"},      {"a:b", 0, "", "a:b"},
        {"a:b", 0, nullptr, "a:b"},     {"", 0, ":", nullptr},         {nullptr, 0, ":", nullptr},
        {"a:b", -1, ":", nullptr},      {"a\xFF\xFFz", 1, "\xFF", "z"}};
    for (const auto& [line, index, separators, expected] : cases) {
        const std::unique_ptr<char[]> copy(Utils::strToK(line, index, separators));
        EXPECT_STREQ(copy.get(), expected) << (line ? line : "null") << ' ' << index;
    }
    EXPECT_EQ(Utils::field("a:bcd:e"sv.substr(0, 4), 1, ":"), "bc") << "stays inside the view";
}

TEST(Utils, parsesNumbersAsEver) {
    struct Case {
        const char* why;
        std::string_view text;
        int base, expected;
        std::string error = "<nothing>";
    };
    const Case cases[] = {
        {"letters count from 'A'", "1F", 16, 21},
        {"lower case counts as 32 and up", "1a", 16, 48},
        {"blanks and zero bytes before it", " \0 7"sv, 10, 7},
        {"ends at a zero byte", "7\0008"sv, 10, 7},
        {"ends at what is no hexadecimal digit", "7z", 8, 7},
        {"wraps at 32 bits", "4294967297", 10, 1},
        {"no octal digit", "9", 8, 0, "invalid oct number"},
        {"starts with no hexadecimal digit", "g", 16, 0, "invalid hex number"},
        {"no decimal digit", "1f", 10, 0, "invalid dec number"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        int value = 0;
        const auto parse = [&] { value = Utils::parseInt(c.text.data(), static_cast<int>(c.text.size()), c.base); };
        EXPECT_EQ(thrownBy<Exception>(parse), c.error);
        EXPECT_EQ(value, c.expected);
        EXPECT_EQ(unitThrownBy(parse), c.error == "<nothing>" ? c.error : "Utils");
    }
    EXPECT_EQ(Utils::parseInt("7", -1, 10), 0);
}

TEST(Utils, looksAtBytes) {
    EXPECT_TRUE(Utils::memstr("ab\0cd", 5, "\0c", 2));
    EXPECT_FALSE(Utils::memstr("ab\0cd", 3, "\0c", 2));
    EXPECT_EQ(Utils::formatString("%5000d", 1).size(), 4095u);
    for (int byte = 0; byte < 256; ++byte) {
        const char high = Utils::CHAR_TO_HEX(byte >> 4), low = Utils::CHAR_TO_HEX(byte);
        EXPECT_EQ(static_cast<unsigned char>(Utils::HEX_TO_CHAR(high, low)), byte);
    }
    EXPECT_EQ(Utils::HEX_TO_CHAR('?', '\xFF'), '\0');
}

}  // namespace
}  // namespace ZOV_SPACE
