#include "Utils.h"

#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <tuple>

#include "Text.h"
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

TEST(StringHelper, replacesEveryOccurrenceAndAlwaysEnds) {
    std::string many, longer;
    for (std::size_t i = 0; i < 2 * StringHelper::kMaxGrowingReplacements; ++i) many += "ab", longer += "xyz";
    const std::tuple<const char*, std::string, const char*, const char*, std::string> cases[] = {
        {"the new occurrence begins before the replacement", "xaabbx", "ab", "", "xx"},
        {"longer, with an end", "aab", "ab", "bba", "bbbbaa"},
        {"longer, very often", many, "ab", "xyz", longer},
        {"contained in its replacement", "a.a", "a", "aa", "aa.aa"},
        {"no start", "abc", nullptr, "x", "abc"},
        {"an empty text occurs nowhere", "abc", "", "x", "abc"},
    };
    for (auto [why, text, from, to, expected] : cases) {
        StringHelper::replace(text, from, to);
        EXPECT_TRUE(text == expected) << why;
    }
    std::string endless = "aab";  // aab -> abbaa -> bbaabaa, which has aab in it again.
    StringHelper::replace(endless, "ab", "bbaa");
    EXPECT_EQ(endless.size(), 3 + 2 * (StringHelper::kMaxGrowingReplacements + 1)) << "and what was there by then";
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
    EXPECT_EQ(text::field("a:bcd:e"sv.substr(0, 4), 1, ":"), "bc") << "stays inside the view";
    EXPECT_EQ((text::splitFields<4>(":a::b", ":")), (std::array{""sv, "a"sv, "b"sv, ""sv}));
    std::vector<std::string> tokens;
    Utils::stringTokenizer(
        ",a,;b", tokens, ",;", [](std::string& token, void* mark) { token += *static_cast<char*>(mark); },
        std::string("!").data());
    EXPECT_EQ(tokens, (std::vector<std::string>{"a!", "b!"})) << "changed before they are appended";
}

TEST(Utils, parsesNumbersAsEver) {
    const std::tuple<const char*, std::string_view, int, int, std::string> cases[] = {
        {"letters count from 'A'", "1F", 16, 21, "<nothing>"},
        {"lower case counts as 32 and up", "1a", 16, 48, "<nothing>"},
        {"blanks and zero bytes before it", " \0 7"sv, 10, 7, "<nothing>"},
        {"ends at a zero byte", "7\0008"sv, 10, 7, "<nothing>"},
        {"ends at what is no hexadecimal digit", "7z", 8, 7, "<nothing>"},
        {"wraps at 32 bits", "4294967297", 10, 1, "<nothing>"},
        {"no octal digit", "9", 8, 0, "invalid oct number"},
        {"starts with no hexadecimal digit", "g", 16, 0, "invalid hex number"},
        {"no decimal digit", "1f", 10, 0, "invalid dec number"},
    };
    for (const auto& [why, text, base, expected, error] : cases) {
        int value = 0;
        const auto parse = [&, &digits = text, base = base] {
            value = Utils::parseInt(digits.data(), static_cast<int>(digits.size()), base);
        };
        EXPECT_EQ(thrownBy<Exception>(parse), error) << why;
        EXPECT_EQ(value, expected) << why;
        EXPECT_EQ(unitThrownBy(parse), error == "<nothing>" ? error : "Utils") << why;
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
