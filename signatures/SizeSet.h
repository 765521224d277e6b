// SizeSet: a set of 32-bit file sizes with constant-time lookup: open addressing with linear probing, at most three
// quarters full. 5 to 11 bytes a size. Where a size goes depends on a number that differs from process to process, so
// that no pattern file can be made whose sizes all go to the same place. Filled by one thread, then only read.
#ifndef SIGNATURES_SIZESET_H
#define SIGNATURES_SIZESET_H

#include <cstddef>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

class SizeSet {
public:
    bool contains(std::uint32_t size) const {
        if (size == kFree) return _hasZero;
        if (_slots.empty()) return false;
        for (std::size_t i = slotOf(size);; i = (i + 1) & (_slots.size() - 1)) {
            if (_slots[i] == size) return true;
            if (_slots[i] == kFree) return false;
        }
    }

    // REQUIRES: room, see reserve().
    void insert(std::uint32_t size) {
        if (size == kFree) {
            _hasZero = true;
            return;
        }
        std::size_t i = slotOf(size);
        while (_slots[i] != kFree && _slots[i] != size) i = (i + 1) & (_slots.size() - 1);
        _count += _slots[i] == kFree;
        _slots[i] = size;
    }

    // Makes room for `extra` more sizes. Throws std::bad_alloc and leaves the set as it was.
    void reserve(std::size_t extra) {
        const std::size_t wanted = (_count + extra) + (_count + extra) / 3 + 1;
        if (wanted <= _slots.size()) return;
        unsigned bits = kSmallestBits;
        while ((std::size_t{1} << bits) < wanted) ++bits;
        SizeSet larger;
        larger._slots.resize(std::size_t{1} << bits);
        larger._shift = 32 - bits;
        larger._hasZero = _hasZero;
        for (const std::uint32_t size : _slots) {
            if (size != kFree) larger.insert(size);
        }
        *this = std::move(larger);
    }

    void prefetch(std::uint32_t size) const { __builtin_prefetch(&_slots[slotOf(size)], 1); }

    void clear() { *this = SizeSet(); }

    std::size_t memoryBytes() const { return _slots.capacity() * sizeof(_slots[0]); }

private:
    static constexpr std::uint32_t kFree = 0;  // Marks a free slot; the size 0 itself is kept aside.
    static constexpr unsigned kSmallestBits = 6;

    // Each product's high bits depend on all bits of its factors; the table takes the highest.
    std::size_t slotOf(std::uint32_t size) const {
        std::uint32_t hash = (size ^ _seed) * 0x9E3779B1U;
        hash = (hash ^ (hash >> 15)) * 0x85EBCA6BU;
        return hash >> _shift;
    }

    static std::uint32_t processSeed() {
        static const std::uint32_t seed = std::random_device()();
        return seed;
    }

    std::vector<std::uint32_t> _slots;
    std::size_t _count = 0;
    unsigned _shift = 0;
    std::uint32_t _seed = processSeed();
    bool _hasZero = false;
};

#endif  // SIGNATURES_SIZESET_H
