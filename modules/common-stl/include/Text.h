// Text.h: what every parser of texts needs: trimming, fields, hexadecimal digits, letter case. Works on views,
// allocates nothing and throws nothing, except for hexOf(); letters and blanks are ASCII's (Ascii.h), whatever the
// host's locale.
//
// StringHelper, Utils and VoleUtil offer the same under the names and with the oddities that they have always had.
#ifndef COMMON_STL_TEXT_H
#define COMMON_STL_TEXT_H

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Ascii.h"

namespace ZOV_SPACE::text {

inline constexpr std::string_view kBlanks = " \t\r\n";
inline constexpr std::string_view kLineEnds = "\r\n";

// A null pointer counts as an empty text.
constexpr std::string_view viewOf(const char* text) { return text ? std::string_view(text) : std::string_view(); }

// The text in front of the first `end`; all of it when there is none.
constexpr std::string_view upTo(std::string_view text, char end) { return text.substr(0, text.find(end)); }

// A loop, which is compiled to a few comparisons where the set is known; the library calls memchr() for each character.
constexpr bool isOneOf(std::string_view set, char c) {
    for (const char member : set) {
        if (member == c) return true;
    }
    return false;
}

// What is left without the characters of `set` at one end or both.
constexpr std::string_view trimStart(std::string_view text, std::string_view set = kBlanks) {
    while (!text.empty() && isOneOf(set, text.front())) text.remove_prefix(1);
    return text;
}
constexpr std::string_view trimEnd(std::string_view text, std::string_view set = kBlanks) {
    while (!text.empty() && isOneOf(set, text.back())) text.remove_suffix(1);
    return text;
}
constexpr std::string_view trim(std::string_view text, std::string_view set = kBlanks) {
    return trimStart(trimEnd(text, set), set);
}

// Takes a line apart at runs of separators, from left to right:
//     Fields fields(line, ":");
//     for (std::string_view field; fields.next(field);) ...
// A run counts as one separator, so that only the first and the last field can be empty: ":a::b:" has the fields "",
// "a", "b" and "". A line without separators, also an empty one, is one field.
class Fields {
public:
    constexpr Fields(std::string_view line, std::string_view separators) : _rest(line), _separators(separators) {}

    // False when there are no more.
    constexpr bool next(std::string_view& field) {
        if (_ended) return false;
        const std::size_t end = nextSeparator();
        field = _rest.substr(0, end);
        _ended = end == std::string_view::npos;
        if (!_ended) _rest = trimStart(_rest.substr(end), _separators);
        return true;
    }

private:
    // One separator is by far the most common, and searched for at memchr()'s speed.
    constexpr std::size_t nextSeparator() const {
        return _separators.size() == 1 ? _rest.find(_separators.front()) : _rest.find_first_of(_separators);
    }

    std::string_view _rest;
    std::string_view _separators;
    bool _ended = false;
};

// The first N fields in one pass; those that are missing are empty.
template <std::size_t N>
constexpr std::array<std::string_view, N> splitFields(std::string_view line, std::string_view separators) {
    std::array<std::string_view, N> all;
    Fields fields(line, separators);
    for (std::string_view& field : all) {
        if (!fields.next(field)) break;
    }
    return all;
}

// Field number `index`, counting from 0; empty when it is missing.
constexpr std::string_view field(std::string_view line, std::size_t index, std::string_view separators) {
    Fields fields(line, separators);
    std::string_view found;
    for (std::size_t i = 0; i <= index; ++i) {
        if (!fields.next(found)) return {};
    }
    return found;
}

// The byte that two hexadecimal digits make, or a negative number.
constexpr int hexByte(char high, char low) {
    // Both are shifted the same way, so that -1 for either makes the result negative.
    return ascii::hexValue(high) * 16 | ascii::hexValue(low);
}

// Writes the bytes that pairs of hexadecimal digits make to `out`, up to the first pair that is none; a single last
// digit is left alone. Returns the number of bytes. REQUIRES: room for half as many bytes as there are characters.
constexpr std::size_t decodeHex(std::string_view digits, unsigned char* out) {
    std::size_t count = 0;
    for (; count < digits.size() / 2; ++count) {
        const int byte = hexByte(digits[2 * count], digits[2 * count + 1]);
        if (byte < 0) break;
        out[count] = static_cast<unsigned char>(byte);
    }
    return count;
}

// Two lower-case digits for each byte. Throws std::bad_alloc.
inline std::string hexOf(std::span<const unsigned char> bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string digits;
    digits.reserve(2 * bytes.size());
    for (const unsigned char byte : bytes) digits.append({kDigits[byte >> 4], kDigits[byte & 15]});
    return digits;
}

// The number that hexadecimal digits make, of which the lowest ones count when they are too many for the type. Nothing
// for an empty text and for one with anything else in it.
template <std::unsigned_integral Number>
constexpr std::optional<Number> hexNumber(std::string_view digits) {
    if (digits.empty()) return std::nullopt;
    std::size_t number = 0;
    static_assert(sizeof(Number) <= sizeof number);
    for (const char c : digits) {
        const int digit = ascii::hexValue(c);
        if (digit < 0) return std::nullopt;
        number = number * 16 + static_cast<std::size_t>(digit);
    }
    return static_cast<Number>(number);
}

constexpr bool sameIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return ascii::toLower(x) == ascii::toLower(y); });
}
constexpr bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    return sameIgnoringCase(text.substr(0, prefix.size()), prefix);
}
constexpr bool endsWithIgnoringCase(std::string_view text, std::string_view suffix) {
    return suffix.size() <= text.size() && sameIgnoringCase(text.substr(text.size() - suffix.size()), suffix);
}

// False when either is null; std::string_view's own does for views.
constexpr bool endsWith(const char* text, const char* suffix) {
    return text && suffix && std::string_view(text).ends_with(suffix);
}

}  // namespace ZOV_SPACE::text

#endif  // COMMON_STL_TEXT_H
