#include "SlotFilter.h"

#include <algorithm>
#include <array>
#include <bit>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define SLOTFILTER_X86 1
#endif

namespace {

constexpr unsigned kBlock = SlotFilter::kBlock;
constexpr unsigned kMostLayers = 8;
constexpr std::size_t kFewestGroups = 256;
// The costs of testing a block, of each of its layers, and of testing one group by itself, relative to each other.
constexpr std::size_t kBlockCost = 4;
constexpr std::size_t kLayerCost = 1;
constexpr std::size_t kGroupCost = 6;
constexpr std::size_t kBatch = 128;      // Blocks tested at a time.
constexpr unsigned char kFiller = 0xA5;  // Of slots that expect nothing; rare in files.

// A block with hits: bit i stands for its slot i.
struct BlockHits {
    std::uint32_t block;
    std::uint32_t slots;
};

// Tests `blockCount` blocks in a row, whose layers lie one behind the other: layerCount rows of first bytes, then as
// many of second ones. A slot is hit when, in some layer, its two bytes are those at its place in `bytes`. Writes the
// blocks that have hits, numbered from 0, and returns how many those are. Reads one byte behind the last block.
using BlockTest = std::size_t (*)(const char* bytes, const unsigned char* layers, unsigned layerCount,
                                  std::uint32_t blockCount, BlockHits* result);

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

#ifdef SLOTFILTER_X86

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

BlockTest chooseBlockTest() {
    if (__builtin_cpu_supports("avx2")) return testWithAvx2;
    if (__builtin_cpu_supports("sse2")) return testWithSse2;
    return testPortably;
}

#else

BlockTest chooseBlockTest() { return testPortably; }

#endif

BlockTest blockTest() {
    static const BlockTest chosen = chooseBlockTest();
    return chosen;
}

// How a group's check strings begin: their different first two bytes, kMostLayers + 1 of them at most.
struct Beginnings {
    std::array<std::uint16_t, kMostLayers + 1> values;
    unsigned count = 0;
};

Beginnings beginningsOf(std::span<const std::uint32_t> checkStrings) {
    Beginnings result;
    for (const std::uint32_t checkString : checkStrings) {
        const auto value = static_cast<std::uint16_t>(checkString);  // The lower half stands first in the file.
        const auto end = result.values.begin() + result.count;
        if (std::find(result.values.begin(), end, value) != end) continue;
        result.values[result.count] = value;
        if (++result.count > kMostLayers) break;
    }
    return result;
}

}  // namespace

// Takes the number of layers that makes a search cheapest, none when testing the groups one by one is cheaper still.
// groupCounts[n] groups have n beginnings; the last element stands for all higher numbers too.
void SlotFilter::chooseLayers(std::span<const unsigned> groupCounts, std::size_t blockCount) {
    std::size_t overflowing = 0;
    for (const unsigned groups : groupCounts) overflowing += groups;
    std::size_t lowestCost = overflowing * kGroupCost;
    for (unsigned layers = 1; layers <= kMostLayers; ++layers) {
        overflowing -= groupCounts[layers];
        const std::size_t cost = blockCount * (kBlockCost + layers * kLayerCost) + overflowing * kGroupCost;
        if (cost >= lowestCost) continue;
        lowestCost = cost;
        _layerCount = layers;
    }
}

SlotFilter::SlotFilter(std::span<const std::int16_t> slots, std::span<const std::uint32_t> firstEntries,
                       std::span<const std::uint32_t> checkStrings) {
    if (slots.size() < kFewestGroups) return;
    const auto beginnings = [&](std::size_t group) {
        return beginningsOf(checkStrings.subspan(firstEntries[group], firstEntries[group + 1] - firstEntries[group]));
    };
    const std::size_t blockCount = static_cast<std::size_t>(slots.back() - slots.front()) / kBlock + 1;
    std::array<unsigned, kMostLayers + 2> groupCounts{};
    for (std::size_t group = 0; group < slots.size(); ++group) ++groupCounts[beginnings(group).count];
    chooseLayers(groupCounts, blockCount);
    if (_layerCount == 0) return;

    _slots.assign(slots.begin(), slots.end());
    _ranks.resize(blockCount * kBlock / 64 + 1);
    _layers.assign(blockCount * blockBytes(), kFiller);
    for (std::size_t group = 0; group < slots.size(); ++group) {
        const Beginnings of = beginnings(group);
        if (of.count > _layerCount) _overflow.push_back(static_cast<std::uint32_t>(group));
        enter(group, {of.values.data(), of.count});
    }
}

void SlotFilter::enter(std::size_t group, std::span<const std::uint16_t> beginnings) {
    const std::size_t slot = place(group);
    Rank& rank = _ranks[slot / 64];
    if (rank.occupied == 0) rank.groupsBefore = static_cast<std::uint32_t>(group);
    rank.occupied |= std::uint64_t{1} << (slot % 64);

    unsigned char* first = _layers.data() + slot / kBlock * blockBytes() + slot % kBlock;
    for (unsigned layer = 0; layer < _layerCount; ++layer, first += kBlock) {
        // Layers that a slot does not need repeat its bytes, so that they add no chance hits.
        const std::uint16_t beginning = beginnings[std::min<std::size_t>(layer, beginnings.size() - 1)];
        first[0] = static_cast<unsigned char>(beginning);
        first[_layerCount * kBlock] = static_cast<unsigned char>(beginning >> 8);
    }
}

void SlotFilter::appendHits(std::size_t block, std::uint32_t hits, std::vector<std::uint32_t>& groups) const {
    for (; hits != 0; hits &= hits - 1) {
        const std::size_t slot = block * kBlock + static_cast<std::size_t>(std::countr_zero(hits));
        const Rank& rank = _ranks[slot / 64];
        const std::uint64_t bit = std::uint64_t{1} << (slot % 64);
        if (!(rank.occupied & bit)) continue;
        const int before = std::popcount(rank.occupied & (bit - 1));
        groups.push_back(rank.groupsBefore + static_cast<std::uint32_t>(before));
    }
}

void SlotFilter::collect(std::size_t first, std::size_t last, std::span<const char> window,
                         std::vector<std::uint32_t>& groups) const {
    const std::size_t begin = place(first);
    const std::size_t end = begin + window.size() - 1;  // A block's test looks one byte beyond the block.
    // Only blocks that lie in the window as a whole; the groups before and behind those are few.
    const std::size_t firstBlock = (begin + kBlock - 1) / kBlock;
    const std::size_t endBlock = std::max(firstBlock, end / kBlock);
    const BlockTest test = blockTest();
    std::array<BlockHits, kBatch> hits;
    for (std::size_t block = firstBlock; block < endBlock; block += kBatch) {
        const char* const bytes = window.data() + (block * kBlock - begin);
        const auto count = static_cast<std::uint32_t>(std::min(kBatch, endBlock - block));
        const std::size_t hitCount =
            test(bytes, _layers.data() + block * blockBytes(), _layerCount, count, hits.data());
        for (std::size_t i = 0; i < hitCount; ++i) appendHits(block + hits[i].block, hits[i].slots, groups);
    }
    // The last block may hold groups behind the range, whose check strings the window does not reach.
    std::erase_if(groups, [=](std::uint32_t group) { return group >= last; });
    for (; first < last && place(first) < firstBlock * kBlock; ++first) {
        groups.push_back(static_cast<std::uint32_t>(first));
    }
    for (; first < last && place(last - 1) >= endBlock * kBlock; --last) {
        groups.push_back(static_cast<std::uint32_t>(last - 1));
    }
    const auto overflowing = std::lower_bound(_overflow.begin(), _overflow.end(), first);
    for (auto group = overflowing; group != _overflow.end() && *group < last; ++group) groups.push_back(*group);
}
