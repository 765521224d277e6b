// Decimal.h: decimal numbers of pattern and option files.
#ifndef SIGNATURES_DECIMAL_H
#define SIGNATURES_DECIMAL_H

#include <algorithm>
#include <climits>
#include <cstdint>
#include <string_view>

#include "Ascii.h"

// The number at the start of the text, as strtol reads it on a 32-bit system: blanks, a sign, digits up to anything
// else, saturating at 2^31 - 1 and -2^31; 0 when there are no digits. The same on every platform.
inline std::int32_t decimalPrefix(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size() && ZOV_SPACE::ascii::isSpace(text[i])) ++i;
    const bool negative = i < text.size() && text[i] == '-';
    if (i < text.size() && (text[i] == '-' || text[i] == '+')) ++i;
    const std::int64_t largest = negative ? -std::int64_t{INT32_MIN} : INT32_MAX;
    std::int64_t value = 0;
    for (; i < text.size() && ZOV_SPACE::ascii::isDigit(text[i]); ++i) {
        value = std::min(value * 10 + (text[i] - '0'), largest);
    }
    return static_cast<std::int32_t>(negative ? -value : value);
}

#endif  // SIGNATURES_DECIMAL_H
