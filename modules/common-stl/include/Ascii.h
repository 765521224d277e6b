// Ascii.h: character classes and letter case of the POSIX locale, whatever the host passed to setlocale(). Unlike
// <cctype> they take any char; bytes of 128 and above belong to no class and have no case.
#ifndef COMMON_STL_ASCII_H
#define COMMON_STL_ASCII_H

#include <algorithm>
#include <string_view>

namespace ZOV_SPACE::ascii {

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool isUpper(char c) { return c >= 'A' && c <= 'Z'; }
constexpr bool isLower(char c) { return c >= 'a' && c <= 'z'; }
constexpr bool isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool isPrint(char c) { return c >= ' ' && c <= '~'; }
constexpr bool isCntrl(char c) { return (c >= 0 && c < ' ') || c == 0x7F; }
constexpr char toLower(char c) { return isUpper(c) ? static_cast<char>(c + ('a' - 'A')) : c; }
constexpr char toUpper(char c) { return isLower(c) ? static_cast<char>(c - ('a' - 'A')) : c; }

// The value of a hexadecimal digit of either case, or -1.
constexpr int hexValue(char c) {
    if (isDigit(c)) return c - '0';
    const char lower = toLower(c);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

constexpr bool isXDigit(char c) { return hexValue(c) >= 0; }

constexpr bool sameIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return toLower(x) == toLower(y); });
}

}  // namespace ZOV_SPACE::ascii

#endif  // COMMON_STL_ASCII_H
