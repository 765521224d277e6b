#include "Escape.h"

#include <gtest/gtest.h>

namespace {

constexpr struct {
    const char *why, *text, *escaped;
} kCases[] = {
    {"UTF-8 of every length stays", "a: \u00e9\u20ac\U0001f600", "a: \u00e9\u20ac\U0001f600"},
    {"a line end would forge a result line", "a\nb: OK", "a\\nb: OK"},
    {"other controls", "\r\x1b[31m\t\x01\x7f", "\\r\\x1b[31m\\t\\x01\\x7f"},
    {"the escape character itself, or escapes could be forged", "a\\nb", "a\\\\nb"},
    {"C1 controls in UTF-8 steer terminals as well", "\xc2\x9b\x33m\xc2\xa0", "\\xc2\\x9b3m\xc2\xa0"},
    {"direction overrides disguise extensions", "a\u202egpj.exe", "a\\xe2\\x80\\xaegpj.exe"},
    {"isolates and separators", "\u2066\u2069\u2028", "\\xe2\\x81\\xa6\\xe2\\x81\\xa9\\xe2\\x80\\xa8"},
    {"their neighbours are harmless", "\u2027\u202f\u2065\u206a", "\u2027\u202f\u2065\u206a"},
    {"a truncated character at the end", "ab\xe2\x82", "ab\\xe2\\x82"},
    {"an interrupted character swallows nothing", "\xe2\x82\n", "\\xe2\\x82\\n"},
    {"an overlong line feed", "\xc0\x8a", "\\xc0\\x8a"},
    {"a surrogate", "\xed\xa0\x80", "\\xed\\xa0\\x80"},
    {"beyond the last code point", "\xf4\x90\x80\x80\xff", "\\xf4\\x90\\x80\\x80\\xff"},
};

TEST(Escape, leavesNothingThatSteersATerminal) {
    for (const auto& c : kCases) {
        std::string line = ">";
        appendEscaped(line, c.text);
        EXPECT_EQ(line, std::string(">") + c.escaped) << c.why;
    }
}

}  // namespace
