// Eight states are 48 bytes, in three registers of eight words. A word with a symbol and its frequency is every third
// one, and no two registers have them at the same place, so that they fit into one register, if out of order.
#include "rar/ppm/RuledOutSymbols.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define RULED_OUT_X86 1
#endif

namespace ZOV_SPACE {
namespace {

std::uint32_t sumOneByOne(const RuledOutSymbols::Bits& ruledOut, const STATE* states, unsigned count,
                          RuledOutSymbols::Frequencies& frequencies) {
    std::uint32_t sum = 0;
    for (unsigned i = 0; i < count; ++i) {
        frequencies[i] = RuledOutSymbols::contains(ruledOut, states[i].symbol) ? 0 : states[i].frequency;
        sum += frequencies[i];
    }
    return sum;
}

#ifdef RULED_OUT_X86

constexpr unsigned kLanes = 8;
static_assert(sizeof(STATE) == 6);

__attribute__((target("ssse3"))) inline __m128i load(const void* bytes) {
    return _mm_loadu_si128(static_cast<const __m128i*>(bytes));
}

// Of eight states, in words: symbol and frequency. Those of the states 0, 3, 6, 1, 4, 7, 2, 5.
__attribute__((target("ssse3"))) inline __m128i gather(const STATE* states) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(states);
    const __m128i first = _mm_and_si128(load(bytes), _mm_set_epi16(0, -1, 0, 0, -1, 0, 0, -1));
    const __m128i second = _mm_and_si128(load(bytes + 16), _mm_set_epi16(-1, 0, 0, -1, 0, 0, -1, 0));
    const __m128i third = _mm_and_si128(load(bytes + 32), _mm_set_epi16(0, 0, -1, 0, 0, -1, 0, 0));
    return _mm_or_si128(_mm_or_si128(first, second), third);
}

// Into the order of the states.
__attribute__((target("ssse3"))) inline __m128i inOrder(__m128i words) {
    return _mm_shuffle_epi8(words, _mm_set_epi8(11, 10, 5, 4, 15, 14, 9, 8, 3, 2, 13, 12, 7, 6, 1, 0));
}

// The frequencies among such words, 0 for symbols that are ruled out by the halves of the set.
__attribute__((target("ssse3"))) inline __m128i keepOthers(__m128i words, __m128i lower, __m128i upper) {
    // An index with its highest bit finds 0, so that each half answers for its own symbols only.
    const __m128i index = _mm_and_si128(words, _mm_set1_epi8(static_cast<char>(0x8F)));
    const __m128i otherIndex = _mm_xor_si128(index, _mm_set1_epi8(static_cast<char>(0x80)));
    const __m128i rows = _mm_or_si128(_mm_shuffle_epi8(lower, index), _mm_shuffle_epi8(upper, otherIndex));
    const __m128i shifts = _mm_and_si128(_mm_srli_epi16(words, 4), _mm_set1_epi8(7));
    const __m128i powers = _mm_set1_epi64x(static_cast<long long>(0x8040201008040201));
    const __m128i bits = _mm_shuffle_epi8(powers, shifts);
    const __m128i isRuledOut = _mm_cmpeq_epi8(_mm_and_si128(rows, bits), bits);
    return _mm_andnot_si128(isRuledOut, _mm_srli_epi16(words, 8));
}

__attribute__((target("ssse3"))) std::uint32_t sumByEight(const RuledOutSymbols::Bits& ruledOut, const STATE* states,
                                                          unsigned count, RuledOutSymbols::Frequencies& frequencies) {
    if (count < kLanes) return sumOneByOne(ruledOut, states, count, frequencies);
    const __m128i lower = load(ruledOut.data()), upper = load(ruledOut.data() + 16);
    __m128i sums = _mm_setzero_si128();  // In words: of 256 states, none exceeds 33 frequencies.
    const auto frequenciesAt = [&](unsigned at) __attribute__((target("ssse3"))) {
        const __m128i eight = inOrder(keepOthers(gather(states + at), lower, upper));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(frequencies.data() + at), eight);
        return eight;
    };
    unsigned at = 0;
    for (; at + kLanes <= count; at += kLanes) sums = _mm_add_epi16(sums, frequenciesAt(at));
    // The rest together with some that were counted.
    constexpr std::array<std::int16_t, 2 * kLanes> kNoneThenAll{0, 0, 0, 0, 0, 0, 0, 0, -1, -1, -1, -1, -1, -1, -1, -1};
    const __m128i rest = load(kNoneThenAll.data() + (count - at));
    sums = _mm_add_epi16(sums, _mm_and_si128(frequenciesAt(count - kLanes), rest));
    sums = _mm_madd_epi16(sums, _mm_set1_epi16(1));
    sums = _mm_add_epi32(sums, _mm_srli_si128(sums, 8));
    sums = _mm_add_epi32(sums, _mm_srli_si128(sums, 4));
    return static_cast<std::uint32_t>(_mm_cvtsi128_si32(sums));
}

#endif

}  // namespace

std::vector<RuledOutSymbols::Sum> RuledOutSymbols::availableSums() {
    std::vector<Sum> sums{sumOneByOne};
#ifdef RULED_OUT_X86
    if (__builtin_cpu_supports("ssse3")) sums.push_back(sumByEight);
#endif
    return sums;
}

}  // namespace ZOV_SPACE
