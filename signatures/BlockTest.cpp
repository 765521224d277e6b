#include "BlockTest.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define BLOCKTEST_X86 1
#endif

namespace {

constexpr unsigned kBlock = kBlockSlots;

std::size_t testPortably(const char* bytes, const unsigned char* layers, unsigned layerCount, std::uint32_t blockCount,
                         BlockHits* result) {
    const unsigned rowBytes = layerCount * kBlock;
    BlockHits* next = result;
    for (std::uint32_t block = 0; block < blockCount; ++block, bytes += kBlock, layers += 2 * rowBytes) {
        std::uint32_t slots = 0;
        for (unsigned i = 0; i < rowBytes; ++i) {
            const bool hit = static_cast<unsigned char>(bytes[i % kBlock]) == layers[i] &&
                             static_cast<unsigned char>(bytes[i % kBlock + 1]) == layers[rowBytes + i];
            slots |= std::uint32_t{hit} << (i % kBlock);
        }
        if (slots != 0) *next++ = {block, slots};
    }
    return static_cast<std::size_t>(next - result);
}

#ifdef BLOCKTEST_X86

// In both of these: few blocks have a first byte that fits, so the second ones are only looked at behind such a hit.

__attribute__((target("sse2"))) std::size_t testWithSse2(const char* bytes, const unsigned char* layers,
                                                         unsigned layerCount, std::uint32_t blockCount,
                                                         BlockHits* result) {
    constexpr unsigned kHalf = kBlock / 2;
    const unsigned rowBytes = layerCount * kBlock;
    BlockHits* next = result;
    for (std::uint32_t block = 0; block < blockCount; ++block, bytes += kBlock, layers += 2 * rowBytes) {
        std::uint32_t slots = 0;
        for (unsigned half = 0; half < kBlock; half += kHalf) {
            const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + half));
            __m128i equal = _mm_setzero_si128();
            for (unsigned row = half; row < rowBytes; row += kBlock) {
                const __m128i expected = _mm_loadu_si128(reinterpret_cast<const __m128i*>(layers + row));
                equal = _mm_or_si128(equal, _mm_cmpeq_epi8(first, expected));
            }
            if (_mm_movemask_epi8(equal) == 0) continue;

            const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + half + 1));
            equal = _mm_setzero_si128();
            for (unsigned row = half; row < rowBytes; row += kBlock) {
                const __m128i expected1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(layers + row));
                const __m128i expected2 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(layers + rowBytes + row));
                const __m128i equal1 = _mm_cmpeq_epi8(first, expected1);
                equal = _mm_or_si128(equal, _mm_and_si128(equal1, _mm_cmpeq_epi8(second, expected2)));
            }
            slots |= static_cast<std::uint32_t>(_mm_movemask_epi8(equal)) << half;
        }
        if (slots != 0) *next++ = {block, slots};
    }
    return static_cast<std::size_t>(next - result);
}

__attribute__((target("avx2"))) std::size_t testWithAvx2(const char* bytes, const unsigned char* layers,
                                                         unsigned layerCount, std::uint32_t blockCount,
                                                         BlockHits* result) {
    const unsigned rowBytes = layerCount * kBlock;
    BlockHits* next = result;
    for (std::uint32_t block = 0; block < blockCount; ++block, bytes += kBlock, layers += 2 * rowBytes) {
        const __m256i first = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes));
        __m256i equal = _mm256_setzero_si256();
        for (unsigned row = 0; row < rowBytes; row += kBlock) {
            const __m256i expected = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(layers + row));
            equal = _mm256_or_si256(equal, _mm256_cmpeq_epi8(first, expected));
        }
        if (_mm256_movemask_epi8(equal) == 0) continue;

        const __m256i second = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes + 1));
        equal = _mm256_setzero_si256();
        for (unsigned row = 0; row < rowBytes; row += kBlock) {
            const __m256i expected1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(layers + row));
            const __m256i expected2 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(layers + rowBytes + row));
            const __m256i equal1 = _mm256_cmpeq_epi8(first, expected1);
            equal = _mm256_or_si256(equal, _mm256_and_si256(equal1, _mm256_cmpeq_epi8(second, expected2)));
        }
        const auto slots = static_cast<std::uint32_t>(_mm256_movemask_epi8(equal));
        if (slots != 0) *next++ = {block, slots};
    }
    return static_cast<std::size_t>(next - result);
}

#endif

}  // namespace

std::vector<BlockTest> availableBlockTests() {
    std::vector<BlockTest> tests{testPortably};
#ifdef BLOCKTEST_X86
    if (__builtin_cpu_supports("sse2")) tests.push_back(testWithSse2);
    if (__builtin_cpu_supports("avx2")) tests.push_back(testWithAvx2);
#endif
    return tests;
}

BlockTest fastestBlockTest() {
    static const BlockTest fastest = availableBlockTests().back();
    return fastest;
}
