// One test in three versions. A byte's code is looked up by its lowest four bits, for 16 or 32 bytes at once, with the
// byte shuffle of SSSE3 or AVX2 (Intel 64 and IA-32 Architectures Software Developer's Manual, PSHUFB). "Code and not
// set" is zero where the byte fits; the results of neighbouring positions are joined before one comparison with zero
// turns them into a bit for each slot.
#include "BlockTest.h"

#include <algorithm>
#include <bit>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define BLOCKTEST_X86 1
#endif

namespace {

std::size_t testPortably(const char* bytes, const BlockRows* rows1, const BlockRows* rows2, std::uint32_t blockCount,
                         BlockHits* result) {
    const auto fits = [](char byte, std::uint8_t set) {
        const std::uint8_t code = byteCode(static_cast<std::uint8_t>(byte));
        return (code & set) == code;
    };
    BlockHits* next = result;
    for (std::uint32_t block = 0; block < blockCount; ++block, bytes += kBlockSlots, ++rows1, ++rows2) {
        std::uint32_t slots = 0;
        for (unsigned i = 0; i < kBlockSlots; ++i) {
            const bool hit = fits(bytes[i], rows1->sets[0][i]) && fits(bytes[i + 1], rows1->sets[1][i]) &&
                             fits(bytes[i + 2], rows2->sets[0][i]) && fits(bytes[i + 3], rows2->sets[1][i]);
            slots |= std::uint32_t{hit} << i;
        }
        if (slots != 0) *next++ = {block, slots};
    }
    return static_cast<std::size_t>(next - result);
}

#ifdef BLOCKTEST_X86

// By the lowest four bits of a byte; a shuffle looks them up for many bytes at once.
alignas(16) constexpr std::uint8_t kCodes[16] = {
    byteCode(0), byteCode(1), byteCode(2),  byteCode(3),  byteCode(4),  byteCode(5),  byteCode(6),  byteCode(7),
    byteCode(8), byteCode(9), byteCode(10), byteCode(11), byteCode(12), byteCode(13), byteCode(14), byteCode(15),
};
constexpr char kIndexBits = 0x0F;

__attribute__((target("ssse3"))) inline __m128i misfitsWithSsse3(const char* bytes, const std::uint8_t* sets) {
    const __m128i codes = _mm_load_si128(reinterpret_cast<const __m128i*>(kCodes));
    const __m128i loaded = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
    const __m128i index = _mm_and_si128(loaded, _mm_set1_epi8(kIndexBits));
    return _mm_andnot_si128(_mm_load_si128(reinterpret_cast<const __m128i*>(sets)), _mm_shuffle_epi8(codes, index));
}

__attribute__((target("ssse3"))) inline std::uint32_t hitsWithSsse3(const char* bytes, const BlockRows& rows) {
    constexpr unsigned kHalf = kBlockSlots / 2;
    std::uint32_t slots = 0;
    for (unsigned i = 0; i < kBlockSlots; i += kHalf) {
        const __m128i misfits = _mm_or_si128(misfitsWithSsse3(bytes + i, rows.sets[0] + i),
                                             misfitsWithSsse3(bytes + i + 1, rows.sets[1] + i));
        const __m128i hits = _mm_cmpeq_epi8(misfits, _mm_setzero_si128());
        slots |= static_cast<std::uint32_t>(_mm_movemask_epi8(hits)) << i;
    }
    return slots;
}

__attribute__((target("ssse3"))) std::size_t testWithSsse3(const char* bytes, const BlockRows* rows1,
                                                           const BlockRows* rows2, std::uint32_t blockCount,
                                                           BlockHits* result) {
    BlockHits* next = result;
    for (std::uint32_t block = 0; block < blockCount; ++block, bytes += kBlockSlots) {
        std::uint32_t slots = hitsWithSsse3(bytes, rows1[block]);
        if (slots != 0) slots &= hitsWithSsse3(bytes + 2, rows2[block]);
        if (slots != 0) *next++ = {block, slots};
    }
    return static_cast<std::size_t>(next - result);
}

__attribute__((target("avx2"))) inline __m256i misfitsWithAvx2(const char* bytes, const std::uint8_t* sets) {
    const __m128i codes = _mm_load_si128(reinterpret_cast<const __m128i*>(kCodes));
    const __m256i loaded = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes));
    const __m256i index = _mm256_and_si256(loaded, _mm256_set1_epi8(kIndexBits));
    return _mm256_andnot_si256(_mm256_load_si256(reinterpret_cast<const __m256i*>(sets)),
                               _mm256_shuffle_epi8(_mm256_broadcastsi128_si256(codes), index));
}

__attribute__((target("avx2"))) inline __m256i misfitsWithAvx2(const char* bytes, const BlockRows& rows) {
    return _mm256_or_si256(misfitsWithAvx2(bytes, rows.sets[0]), misfitsWithAvx2(bytes + 1, rows.sets[1]));
}

__attribute__((target("avx2"))) inline std::uint32_t hitsWithAvx2(__m256i misfits) {
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(misfits, _mm256_setzero_si256())));
}

// Some blocks have a slot that the first two bytes fit, in no order that a processor could predict. So a run of blocks
// is looked through for them without a branch; the second rows, of which hardly any are needed, are read behind them.
__attribute__((target("avx2"))) std::size_t testWithAvx2(const char* bytes, const BlockRows* rows1,
                                                         const BlockRows* rows2, std::uint32_t blockCount,
                                                         BlockHits* result) {
    constexpr std::uint32_t kRun = 64;
    BlockHits* next = result;
    for (std::uint32_t begin = 0; begin < blockCount; begin += kRun) {
        const std::uint32_t end = std::min(begin + kRun, blockCount);
        std::uint64_t passed = 0;  // The lowest bit stands for the run's last block.
        const char* at = bytes + std::size_t{begin} * kBlockSlots;
#pragma GCC unroll 4
        for (const BlockRows* rows = rows1 + begin; rows != rows1 + end; ++rows, at += kBlockSlots) {
            passed = passed * 2 + (hitsWithAvx2(misfitsWithAvx2(at, *rows)) != 0);
        }
        for (; passed != 0; passed &= passed - 1) {
            const std::uint32_t block = end - 1 - static_cast<std::uint32_t>(std::countr_zero(passed));
            const char* const first = bytes + std::size_t{block} * kBlockSlots;
            const __m256i misfits =
                _mm256_or_si256(misfitsWithAvx2(first, rows1[block]), misfitsWithAvx2(first + 2, rows2[block]));
            const std::uint32_t slots = hitsWithAvx2(misfits);
            if (slots != 0) *next++ = {block, slots};
        }
    }
    return static_cast<std::size_t>(next - result);
}

#endif

}  // namespace

std::vector<BlockTest> availableBlockTests() {
    std::vector<BlockTest> tests{testPortably};
#ifdef BLOCKTEST_X86
    if (__builtin_cpu_supports("ssse3")) tests.push_back(testWithSsse3);
    if (__builtin_cpu_supports("avx2")) tests.push_back(testWithAvx2);
#endif
    return tests;
}

BlockTest fastestBlockTest() {
    static const BlockTest fastest = availableBlockTests().back();
    return fastest;
}
