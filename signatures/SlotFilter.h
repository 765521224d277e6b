// SlotFilter: finds, among many positions of a window, those where one of the check strings that are expected there
// could begin; 32 positions at a time.
//
// Positions are slots, counted from the first group's slot and cut into blocks of kBlockSlots, whose slots are tested
// all at once. For each of the four bytes of a check string, a slot has a set of the values, four bits of each, that
// its check strings have there; it is hit when all four bytes of the window are in the sets. So a slot takes four bytes
// however many check strings it has; more of them only make chance hits likelier. A slot without a group is never hit.
//
// Immutable once built or mapped; shared by any number of threads.
#ifndef SIGNATURES_SLOTFILTER_H
#define SIGNATURES_SLOTFILTER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "BlockTest.h"
#include "Table.h"
#include "TableFile.h"

class SlotFilter {
public:
    SlotFilter() = default;

    // For groups at ascending slots; group i expects the check strings [firstEntries[i], firstEntries[i + 1]), at least
    // one, as little-endian numbers. Stays empty when the groups are too few, too far apart or too crowded to gain
    // anything. The slots are borrowed.
    SlotFilter(std::span<const std::int16_t> slots, std::span<const std::uint32_t> firstEntries,
               std::span<const std::uint32_t> checkStrings);

    bool empty() const { return _ranks.empty(); }
    std::size_t memoryBytes() const;

    void save(TableSink& sink) const;
    // Throws Exception. In a damaged file, collect() may give any numbers.
    // REQUIRES: the filter is empty, and the slots are one at least, ascending.
    void map(TableSource& source, std::span<const std::int16_t> slots);

    // Appends the numbers of the groups in [first, last) that could be hit, in no order. The window begins at the first
    // group's slot and reaches the last byte of the last one's check string. All tests give the same result.
    void collect(std::size_t first, std::size_t last, std::span<const char> window, std::vector<std::uint32_t>& groups,
                 BlockTest test = fastestBlockTest()) const;

private:
    // Which slots of a block have a group, and how many groups lie before the block.
    struct Rank {
        std::uint32_t occupied = 0;
        std::uint32_t groupsBefore = 0;
    };

    std::size_t place(std::size_t group) const { return static_cast<std::size_t>(_slots[group] - _slots[0]); }
    void enter(std::size_t group, std::span<const std::uint32_t> checkStrings);
    bool worthwhile() const;
    void appendHits(std::size_t block, std::uint32_t hits, std::vector<std::uint32_t>& groups) const;

    static std::size_t blockCountFor(std::span<const std::int16_t> slots);

    std::span<const std::int16_t> _slots;
    Table<Rank> _ranks;                     // By block.
    std::array<Table<BlockRows>, 2> _rows;  // By block; for the first two bytes and for the others.
};

#endif  // SIGNATURES_SLOTFILTER_H
