// SlotFilter: finds, among many positions of a window, those where one of the check strings that are expected there
// could begin; 32 positions at a time.
//
// Positions are slots, counted from the first group's slot and cut into blocks of kBlockSlots. A block has a fixed
// number of layers. In each layer a slot has the first two bytes of one of its check strings; so a slot is hit only if
// its bytes in the window equal those in some layer, and a whole block is tested with a comparison or two a layer. A
// slot with more different beginnings than layers overflows: it is always reported. A slot without a group has
// arbitrary bytes; its hits are dropped.
//
// Immutable once built; shared by any number of threads.
#ifndef SIGNATURES_SLOTFILTER_H
#define SIGNATURES_SLOTFILTER_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "BlockTest.h"

class SlotFilter {
public:
    SlotFilter() = default;

    // For groups at ascending slots; group i expects the check strings [firstEntries[i], firstEntries[i + 1]), at least
    // one, as little-endian numbers. Stays empty when the groups are too few, or too far apart, to gain anything.
    SlotFilter(std::span<const std::int16_t> slots, std::span<const std::uint32_t> firstEntries,
               std::span<const std::uint32_t> checkStrings);

    bool empty() const { return _layers.empty(); }

    // Appends the numbers of the groups in [first, last) that could be hit, in no order and some of them twice. The
    // window begins at the first group's slot and reaches the last byte of the last one's check string.
    void collect(std::size_t first, std::size_t last, std::span<const char> window,
                 std::vector<std::uint32_t>& groups) const;

private:
    // Which slots of a run of 64 have a group, and how many groups lie before the run.
    struct Rank {
        std::uint64_t occupied = 0;
        std::uint32_t groupsBefore = 0;
    };

    std::size_t place(std::size_t group) const { return static_cast<std::size_t>(_slots[group] - _slots[0]); }
    std::size_t blockBytes() const { return std::size_t{2} * kBlockSlots * _layerCount; }
    void chooseLayers(std::span<const unsigned> groupCounts, std::size_t blockCount);
    void enter(std::size_t group, std::span<const std::uint16_t> beginnings);
    void appendHits(std::size_t block, std::uint32_t hits, std::vector<std::uint32_t>& groups) const;

    std::vector<std::int16_t> _slots;
    std::vector<Rank> _ranks;
    std::vector<std::uint32_t> _overflow;  // Groups, ascending.
    std::vector<unsigned char> _layers;    // By block; first or second byte; layer; slot.
    unsigned _layerCount = 0;
};

#endif  // SIGNATURES_SLOTFILTER_H
