// SizeSet: a set of 32-bit file sizes with constant-time lookup: open addressing with linear probing, at most three
// quarters full. 5 to 11 bytes a size. Where a size goes depends on a number that differs from process to process, so
// that no pattern file can be made whose sizes all go to the same place. On the way to where a size lies there are only
// smaller ones, so that equal sets of as many slots are the same slots, in whatever order and steps they were filled.
// Filled by one thread, or mapped from a file with that process's number, then only read.
#ifndef SIGNATURES_SIZESET_H
#define SIGNATURES_SIZESET_H

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <utility>

#include "LargePages.h"
#include "Table.h"
#include "TableFile.h"

class SizeSet {
public:
    bool contains(std::uint32_t size) const {
        if (size == kFree) return _hasZero;
        if (_slots.empty()) return false;
        std::size_t i = slotOf(size);
        for (std::size_t left = _slots.size(); left > 0; --left, i = (i + 1) & (_slots.size() - 1)) {
            if (_slots[i] == size) return true;
            if (_slots[i] == kFree) return false;
        }
        return false;  // A set always has a free slot, a damaged file may have none.
    }

    // REQUIRES: room, see reserve().
    void insert(std::uint32_t size) {
        if (size == kFree) {
            _hasZero = true;
            return;
        }
        std::size_t i = slotOf(size);
        for (; _slots[i] != kFree; i = (i + 1) & (_slots.size() - 1)) {
            if (_slots[i] == size) return;
            const std::uint32_t there = _slots[i];
            _slots.at(i) = std::min(there, size);
            size = std::max(there, size);
        }
        ++_count;
        _slots.at(i) = size;
    }

    // Makes room for `extra` more sizes. Throws std::bad_alloc and leaves the set as it was.
    void reserve(std::size_t extra) {
        if (slotsFor(_count + extra) > _slots.size()) moveTo(slotsFor(_count + extra));
    }

    // Gives back the room that turned out not to be needed. Throws std::bad_alloc and leaves the set as it was.
    void fit() {
        if (!_slots.empty() && slotsFor(_count) < _slots.size()) moveTo(slotsFor(_count));
    }

    void prefetch(std::uint32_t size) const { __builtin_prefetch(&_slots[slotOf(size)], 1); }

    void clear() { *this = SizeSet(); }

    std::size_t memoryBytes() const { return _slots.memoryBytes(); }

    void save(TableSink& sink) const {
        const std::uint32_t facts[] = {_seed, _hasZero};
        sink.table(std::span<const std::uint32_t>(facts));
        sink.table(_slots.elements());
    }

    // REQUIRES: the set is empty.
    void map(TableSource& source) {
        const auto facts = source.table<std::uint32_t>();
        _slots = Slots(source.table<std::uint32_t>());
        TableSource::require(facts.size() == 2 && (_slots.empty() || std::has_single_bit(_slots.size())));
        const std::uint64_t count = _slots.size();
        TableSource::require(count == 0 || (count >= 1U << kSmallestBits && count <= std::uint64_t{1} << 32));
        _seed = facts[0];
        _hasZero = facts[1] != 0;
        _shift = 32 - static_cast<unsigned>(std::countr_zero(_slots.size()));
    }

private:
    using Slots = Table<std::uint32_t, ZOV_SPACE::LargePageAllocator<std::uint32_t>>;

    static constexpr std::uint32_t kFree = 0;  // Marks a free slot; the size 0 itself is kept aside.
    static constexpr unsigned kSmallestBits = 6;

    // Each product's high bits depend on all bits of its factors; the table takes the highest.
    std::size_t slotOf(std::uint32_t size) const {
        std::uint32_t hash = (size ^ _seed) * 0x9E3779B1U;
        hash = (hash ^ (hash >> 15)) * 0x85EBCA6BU;
        return hash >> _shift;
    }

    static std::size_t slotsFor(std::size_t sizes) {
        return std::bit_ceil(std::max(sizes + sizes / 3 + 1, std::size_t{1} << kSmallestBits));
    }

    void moveTo(std::size_t slots) {
        SizeSet moved;
        moved._slots = Slots(slots, kFree);
        moved._shift = 32 - static_cast<unsigned>(std::countr_zero(slots));
        moved._hasZero = _hasZero;
        for (const std::uint32_t size : _slots) {
            if (size != kFree) moved.insert(size);
        }
        *this = std::move(moved);
    }

    static std::uint32_t processSeed() {
        static const std::uint32_t seed = std::random_device()();
        return seed;
    }

    Slots _slots;
    std::size_t _count = 0;
    unsigned _shift = 0;
    std::uint32_t _seed = processSeed();
    bool _hasZero = false;
};

#endif  // SIGNATURES_SIZESET_H
