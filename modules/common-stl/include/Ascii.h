// Ascii.h: character classes and letter case of the POSIX locale, whatever the host passed to setlocale(). Unlike
// <cctype> they take any char; bytes of 128 and above belong to no class and have no case.
#ifndef COMMON_STL_ASCII_H
#define COMMON_STL_ASCII_H

#include <array>

namespace ZOV_SPACE::ascii {

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool isUpper(char c) { return c >= 'A' && c <= 'Z'; }
constexpr bool isLower(char c) { return c >= 'a' && c <= 'z'; }
constexpr bool isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool isPrint(char c) { return c >= ' ' && c <= '~'; }
constexpr bool isCntrl(char c) { return (c >= 0 && c < ' ') || c == 0x7F; }
constexpr char toLower(char c) { return isUpper(c) ? static_cast<char>(c + ('a' - 'A')) : c; }
constexpr char toUpper(char c) { return isLower(c) ? static_cast<char>(c - ('a' - 'A')) : c; }

// By byte; -1 for what is no hexadecimal digit. A table, because pattern files are made of these digits.
inline constexpr auto kHexValues = [] {
    std::array<signed char, 256> values{};
    values.fill(-1);
    for (unsigned char i = 0; i < 16; ++i) {
        values[static_cast<unsigned char>("0123456789abcdef"[i])] = static_cast<signed char>(i);
        values[static_cast<unsigned char>("0123456789ABCDEF"[i])] = static_cast<signed char>(i);
    }
    return values;
}();

// The value of a hexadecimal digit of either case, or -1.
constexpr int hexValue(char c) { return kHexValues[static_cast<unsigned char>(c)]; }

constexpr bool isXDigit(char c) { return hexValue(c) >= 0; }

}  // namespace ZOV_SPACE::ascii

#endif  // COMMON_STL_ASCII_H
