#include "SlotFilter.h"

#include <algorithm>
#include <array>
#include <bit>

namespace {

constexpr unsigned kMostLayers = 8;
constexpr std::size_t kFewestGroups = 256;
// The costs of testing a block, of each of its layers, and of testing one group by itself, relative to each other.
constexpr std::size_t kBlockCost = 4;
constexpr std::size_t kLayerCost = 1;
constexpr std::size_t kGroupCost = 6;
constexpr std::size_t kBatch = 128;      // Blocks tested at a time.
constexpr unsigned char kFiller = 0xA5;  // Of slots that expect nothing; rare in files.

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
    const std::size_t blockCount = static_cast<std::size_t>(slots.back() - slots.front()) / kBlockSlots + 1;
    std::array<unsigned, kMostLayers + 2> groupCounts{};
    for (std::size_t group = 0; group < slots.size(); ++group) ++groupCounts[beginnings(group).count];
    chooseLayers(groupCounts, blockCount);
    if (_layerCount == 0) return;

    _slots.assign(slots.begin(), slots.end());
    _ranks.resize(blockCount * kBlockSlots / 64 + 1);
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

    unsigned char* first = _layers.data() + slot / kBlockSlots * blockBytes() + slot % kBlockSlots;
    for (unsigned layer = 0; layer < _layerCount; ++layer, first += kBlockSlots) {
        // Layers that a slot does not need repeat its bytes, so that they add no chance hits.
        const std::uint16_t beginning = beginnings[std::min<std::size_t>(layer, beginnings.size() - 1)];
        first[0] = static_cast<unsigned char>(beginning);
        first[_layerCount * kBlockSlots] = static_cast<unsigned char>(beginning >> 8);
    }
}

void SlotFilter::appendHits(std::size_t block, std::uint32_t hits, std::vector<std::uint32_t>& groups) const {
    for (; hits != 0; hits &= hits - 1) {
        const std::size_t slot = block * kBlockSlots + static_cast<std::size_t>(std::countr_zero(hits));
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
    const std::size_t firstBlock = (begin + kBlockSlots - 1) / kBlockSlots;
    const std::size_t endBlock = std::max(firstBlock, end / kBlockSlots);
    const BlockTest test = fastestBlockTest();
    std::array<BlockHits, kBatch> hits;
    for (std::size_t block = firstBlock; block < endBlock; block += kBatch) {
        const char* const bytes = window.data() + (block * kBlockSlots - begin);
        const auto count = static_cast<std::uint32_t>(std::min(kBatch, endBlock - block));
        const std::size_t hitCount =
            test(bytes, _layers.data() + block * blockBytes(), _layerCount, count, hits.data());
        for (std::size_t i = 0; i < hitCount; ++i) appendHits(block + hits[i].block, hits[i].slots, groups);
    }
    // The last block may hold groups behind the range, whose check strings the window does not reach.
    std::erase_if(groups, [=](std::uint32_t group) { return group >= last; });
    for (; first < last && place(first) < firstBlock * kBlockSlots; ++first) {
        groups.push_back(static_cast<std::uint32_t>(first));
    }
    for (; first < last && place(last - 1) >= endBlock * kBlockSlots; --last) {
        groups.push_back(static_cast<std::uint32_t>(last - 1));
    }
    const auto overflowing = std::lower_bound(_overflow.begin(), _overflow.end(), first);
    for (auto group = overflowing; group != _overflow.end() && *group < last; ++group) groups.push_back(*group);
}
