// PlainLine.h: the lines that nearly all of an ".hdb" file consists of, taken apart in one pass over their bytes:
// 32 hexadecimal digits, ':', 1 to 10 decimal digits, ':', a name without ':', carriage return and NUL, a line feed.
// Whatever is not quite so is for the parser of all lines, which has the last word on it and would say the same here.
#ifndef SIGNATURES_PLAINLINE_H
#define SIGNATURES_PLAINLINE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

#ifdef __SSE2__
#include <emmintrin.h>

#include <bit>
#endif

namespace plain {

// What may be read behind a text, and written behind a name.
constexpr std::size_t kSlack = 16;

#ifdef __SSE2__

constexpr bool kAvailable = true;

// Each byte's value as a digit; `bad` becomes not zero where one is none.
inline __m128i digitValues(__m128i digits, __m128i& bad) {
    const auto between = [](__m128i bytes, char first, char last) {
        return _mm_and_si128(_mm_cmpgt_epi8(bytes, _mm_set1_epi8(static_cast<char>(first - 1))),
                             _mm_cmpgt_epi8(_mm_set1_epi8(static_cast<char>(last + 1)), bytes));
    };
    const __m128i lower = _mm_or_si128(digits, _mm_set1_epi8(0x20));
    const __m128i isNumeral = between(digits, '0', '9'), isLetter = between(lower, 'a', 'f');
    bad = _mm_or_si128(bad, _mm_cmpeq_epi8(_mm_or_si128(isNumeral, isLetter), _mm_setzero_si128()));
    const __m128i ofLetter = _mm_and_si128(isLetter, _mm_set1_epi8(9));
    return _mm_add_epi8(_mm_and_si128(digits, _mm_set1_epi8(0x0F)), ofLetter);
}

// Writes 16 bytes, whose values mean nothing when the answer is false.
inline bool decodeDigest(const char* digits, unsigned char* digest) {
    __m128i bad = _mm_setzero_si128();
    __m128i words[2];
    for (int i = 0; i < 2; ++i) {
        const auto* const half = reinterpret_cast<const __m128i*>(digits + 16 * i);
        const __m128i values = digitValues(_mm_loadu_si128(half), bad);
        // The first of two digits lies in a word's lower half.
        const __m128i joined = _mm_or_si128(_mm_slli_epi16(values, 4), _mm_srli_epi16(values, 8));
        words[i] = _mm_and_si128(joined, _mm_set1_epi16(0xFF));
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(digest), _mm_packus_epi16(words[0], words[1]));
    return _mm_movemask_epi8(bad) == 0;
}

// Copies up to where the name ends, and then some. The name's length; 0 when it has none, or no line feed behind it
// before `end`.
inline std::size_t copyName(const char* name, const char* end, char* copy) {
    for (std::size_t length = 0; name + length < end; length += 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(name + length));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(copy + length), bytes);
        const auto is = [bytes](char c) { return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(c)); };
        const __m128i ends = _mm_or_si128(_mm_or_si128(is('\n'), is(':')), _mm_or_si128(is('\r'), is('\0')));
        if (const auto mask = static_cast<unsigned>(_mm_movemask_epi8(ends))) {
            length += static_cast<unsigned>(std::countr_zero(mask));
            return name + length < end && name[length] == '\n' ? length : 0;
        }
    }
    return 0;
}

#else

constexpr bool kAvailable = false;

inline bool decodeDigest(const char*, unsigned char*) { return false; }
inline std::size_t copyName(const char*, const char*, char*) { return 0; }

#endif

// A number that saturates as decimalPrefix() has it, with `text` moved to behind the ':' after it; without digits when
// it is no plain one.
struct Number {
    std::uint32_t value = 0;
    int digits = 0;
};

inline Number takeSize(const char*& text) {
    constexpr int kMostDigits = 10;
    std::uint64_t value = 0;
    int digits = 0;
    for (; *text >= '0' && *text <= '9'; ++text, ++digits) {
        if (digits == kMostDigits) return {};
        value = value * 10 + static_cast<unsigned>(*text - '0');
    }
    if (*text++ != ':') return {};
    return {static_cast<std::uint32_t>(std::min<std::uint64_t>(value, INT32_MAX)), digits};
}

}  // namespace plain

#endif  // SIGNATURES_PLAINLINE_H
