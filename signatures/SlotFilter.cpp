// How a block is tested: for each of its 32 slots there are four sets, one for each byte of a check string, of which a
// set is eight bits that byteCode() describes. The sets of one byte position lie side by side, so that a vector
// register compares 32 slots at a time with 32 bytes of the window; the four positions use the window shifted by 0 to 3
// bytes. The first two positions reject nearly all blocks, so the rows of the others are read for the rest only.
//
// Whether that gains anything depends on the records. The constructor adds up the chance of each slot to be hit by
// random bytes, weighs it against testing the groups one by one, and stays empty when it would lose.
#include "SlotFilter.h"

#include <algorithm>
#include <array>
#include <bit>

namespace {

constexpr std::size_t kFewestGroups = 256;
// The costs of testing a block, one group by itself, and one that was hit, relative to each other.
constexpr std::size_t kBlockCost = 1;
constexpr std::size_t kGroupCost = 2;
constexpr std::size_t kHitCost = 4;
constexpr std::size_t kMostBlocks = 0x10000 / kBlockSlots;  // Slots are 16-bit numbers.

// How many of the 16 values of a byte's lowest four bits fit.
unsigned fittingValues(std::uint8_t set) {
    return static_cast<unsigned>(std::popcount(set & 0x0FU) * std::popcount(set & 0xF0U));
}

}  // namespace

std::size_t SlotFilter::blockCountFor(std::span<const std::int16_t> slots) {
    return static_cast<std::size_t>(slots.back() - slots.front()) / kBlockSlots + 1;
}

SlotFilter::SlotFilter(std::span<const std::int16_t> slots, std::span<const std::uint32_t> firstEntries,
                       std::span<const std::uint32_t> checkStrings) {
    if (slots.size() < kFewestGroups) return;
    const std::size_t blockCount = blockCountFor(slots);
    if (blockCount * kBlockCost >= slots.size() * kGroupCost) return;

    _slots = slots;
    _ranks = Table<Rank>(blockCount);
    for (auto& rows : _rows) rows = Table<BlockRows>(blockCount);
    for (std::size_t group = 0; group < slots.size(); ++group) {
        enter(group, checkStrings.subspan(firstEntries[group], firstEntries[group + 1] - firstEntries[group]));
    }
    if (!worthwhile()) *this = {};
}

void SlotFilter::enter(std::size_t group, std::span<const std::uint32_t> checkStrings) {
    const std::size_t block = place(group) / kBlockSlots;
    const std::size_t slot = place(group) % kBlockSlots;
    Rank& rank = _ranks.at(block);
    if (rank.occupied == 0) rank.groupsBefore = static_cast<std::uint32_t>(group);
    rank.occupied |= std::uint32_t{1} << slot;
    for (const std::uint32_t checkString : checkStrings) {
        for (unsigned i = 0; i < 4; ++i) {
            _rows[i / 2].at(block).sets[i % 2][slot] |= byteCode(static_cast<std::uint8_t>(checkString >> (8 * i)));
        }
    }
}

// Whether a search among random bytes is cheaper than testing the groups one by one.
bool SlotFilter::worthwhile() const {
    std::uint64_t hits = 0;  // In 16^4ths.
    for (std::size_t block = 0; block < _ranks.size(); ++block) {
        for (unsigned slot = 0; slot < kBlockSlots; ++slot) {
            unsigned chance = 1;
            for (const auto& rows : _rows) {
                for (const auto& row : rows[block].sets) chance *= fittingValues(row[slot]);
            }
            hits += chance;
        }
    }
    return _ranks.size() * kBlockCost + (hits >> 16) * kHitCost < _slots.size() * kGroupCost;
}

void SlotFilter::appendHits(std::size_t block, std::uint32_t hits, std::vector<std::uint32_t>& groups) const {
    const Rank& rank = _ranks[block];
    for (; hits != 0; hits &= hits - 1) {
        const std::uint32_t slotsBefore = (hits & -hits) - 1;
        groups.push_back(rank.groupsBefore + static_cast<std::uint32_t>(std::popcount(rank.occupied & slotsBefore)));
    }
}

void SlotFilter::collect(std::size_t first, std::size_t last, std::span<const char> window,
                         std::vector<std::uint32_t>& groups, BlockTest test) const {
    const std::size_t begin = place(first);
    const std::size_t end = begin + window.size() - 3;  // A block's test looks that far beyond the block.
    // Only blocks that lie in the window as a whole; the groups before and behind those are few.
    const std::size_t firstBlock = (begin + kBlockSlots - 1) / kBlockSlots;
    const std::size_t endBlock = std::max(firstBlock, end / kBlockSlots);
    std::array<BlockHits, kMostBlocks> hits;
    const char* const bytes = window.data() + (firstBlock * kBlockSlots - begin);
    const auto count = static_cast<std::uint32_t>(endBlock - firstBlock);
    const std::size_t hitCount = test(bytes, _rows[0].elements().data() + firstBlock,
                                      _rows[1].elements().data() + firstBlock, count, hits.data());
    for (std::size_t i = 0; i < hitCount; ++i) appendHits(firstBlock + hits[i].block, hits[i].slots, groups);
    for (; first < last && place(first) < firstBlock * kBlockSlots; ++first) {
        groups.push_back(static_cast<std::uint32_t>(first));
    }
    for (; first < last && place(last - 1) >= endBlock * kBlockSlots; --last) {
        groups.push_back(static_cast<std::uint32_t>(last - 1));
    }
}

std::size_t SlotFilter::memoryBytes() const {
    return _ranks.memoryBytes() + _rows[0].memoryBytes() + _rows[1].memoryBytes();
}

void SlotFilter::save(TableSink& sink) const {
    sink.table(_ranks.elements());
    for (const auto& rows : _rows) sink.table(rows.elements());
}

void SlotFilter::map(TableSource& source, std::span<const std::int16_t> slots) {
    _slots = slots;
    _ranks = Table(source.table<Rank>());
    TableSource::require(_ranks.empty() || _ranks.size() == blockCountFor(slots));
    for (auto& rows : _rows) {
        rows = Table(source.table<BlockRows>());
        TableSource::require(rows.size() == _ranks.size());
    }
}
