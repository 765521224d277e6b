// Blocks have 38 sizes in units, and a list of free ones for each. What is asked for comes from the list of its size,
// then from between the two ends of what was never used, then from a larger block, whose rest is freed, and last from
// below the units, where the text has to give way. Before larger blocks are cut, now and then neighbours that are free
// are merged: they carry a stamp while that is done.
#include "rar/ppm/SubAllocator.h"

#include <bit>
#include <cstring>
#include <utility>

#include "LargePages.h"
#include "Raise.h"
#include "rar/ppm/HeapAllowance.h"
#include "rar/ppm/HeapValue.h"
#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"../../core/pakfold/src/unarchiver/RarModel"};

constexpr std::uint32_t kUnitBytes = SubAllocator::kUnitBytes;
constexpr std::uint32_t kMostUnits = 128;
// What a heap costs, as so many bytes of output, even if hardly used: mapping it, and a large page at each of its
// places (0.17 ms for the largest one).
constexpr std::int64_t kNewHeapCost = 32 << 10;
constexpr std::uint32_t kGlueInterval = 255;
constexpr std::uint16_t kFreeStamp = 0xFFFF;  // No context has so many states, no state that frequency.

// The sizes of blocks in units: 1 to 4, 6 to 12 by 2, 15 to 24 by 3, 28 to 128 by 4.
constexpr std::array<unsigned char, 38> unitsOfSize() {
    std::array<unsigned char, 38> units{};
    unsigned value = 0;
    for (unsigned i = 0; i < units.size(); ++i) {
        value += i < 4 ? 1 : i < 8 ? 2 : i < 12 ? 3 : 4;
        units[i] = static_cast<unsigned char>(value);
    }
    return units;
}
constexpr auto kUnitsOfSize = unitsOfSize();

// The smallest size that has room for so many units, less one.
constexpr std::array<unsigned char, kMostUnits> sizeOfUnits() {
    std::array<unsigned char, kMostUnits> sizes{};
    unsigned char size = 0;
    for (unsigned i = 0; i < sizes.size(); ++i) {
        if (kUnitsOfSize[size] < i + 1) ++size;
        sizes[i] = size;
    }
    return sizes;
}
constexpr auto kSizeOfUnits = sizeOfUnits();

constexpr std::uint32_t unitsOf(int size) { return kUnitsOfSize[static_cast<unsigned>(size)]; }
constexpr std::uint32_t bytesOf(int size) { return unitsOf(size) * kUnitBytes; }
constexpr int sizeFor(std::uint32_t units) { return kSizeOfUnits[(units - 1) % kMostUnits]; }

}  // namespace

// A free block. In its list it has nothing but the next one's offset, at its start; stamp and units only while free
// blocks are merged.
struct SubAllocator::MemBlock {
    HeapValue<std::uint16_t> stamp;
    HeapValue<std::uint16_t> units;
    HeapValue<Offset> next;
    HeapValue<Offset> previous;
};

void SubAllocator::Clean() {
    _heap = nullptr;
    _size = _heapBytes = 0;
}

void SubAllocator::StopSubAllocator() {
    if (_heapBytes == 0) return;
    _memory.reset();
    HeapAllowance::ofProcess().giveBack(_heapBytes);
    Clean();
}

void SubAllocator::StartSubAllocator(int megabytes) {
    const std::uint32_t size = static_cast<std::uint32_t>(megabytes) << 20;
    if (size == _size) return;
    StopSubAllocator();
    ScanBudget::chargeDiscardedBytes(kNewHeapCost);
    const std::uint32_t bytes = size / kUnitBytes * kUnitBytes + kUnitBytes;
    HeapAllowance::ofProcess().take(bytes);
    _heapBytes = bytes;
    _memory.reset(static_cast<char*>(std::malloc(bytes)));
    if (!_memory) {
        StopSubAllocator();
        kUnit.raise<OutOfMemoryException>("Out of memory");
    }
    preferLargePages(_memory.get(), bytes);
    _heap = reinterpret_cast<unsigned char*>(_memory.get());
    _size = size;
}

void SubAllocator::InitSubAllocator() {
    _freeLists.fill(0);
    _filledLists = 0;
    _text = 0;
    _highUnit = _size;
    _lowUnit = _unitsStart = _size - _size / 8 / kUnitBytes * 7 * kUnitBytes;
    _glueCount = 0;
}

SubAllocator::MemBlock& SubAllocator::block(Offset at) const {
    static_assert(sizeof(MemBlock) == kUnitBytes);
    return *reinterpret_cast<MemBlock*>(_heap + at);
}

void SubAllocator::InsertNode(Offset block, int size) {
    Offset& first = _freeLists[static_cast<unsigned>(size)];
    std::memcpy(_heap + block, &first, sizeof first);
    first = block;
    _filledLists |= std::uint64_t{1} << size;
}

SubAllocator::Offset SubAllocator::RemoveNode(int size) {
    if ((_filledLists >> size & 1) == 0) return 0;
    Offset& first = _freeLists[static_cast<unsigned>(size)];
    const Offset block = first;
    std::memcpy(&first, _heap + block, sizeof first);
    if (!contains(first, bytesOf(size))) {
        first = 0;
        _filledLists &= ~(std::uint64_t{1} << size);
    }
    return block;
}

// Keeps the front of a block and frees the rest, in two blocks if there is no such size.
void SubAllocator::SplitBlock(Offset block, int oldSize, int newSize) {
    std::uint32_t rest = unitsOf(oldSize) - unitsOf(newSize);
    block += bytesOf(newSize);
    int size = sizeFor(rest);
    if (unitsOf(size) != rest) {
        InsertNode(block, --size);
        block += bytesOf(size);
        rest -= unitsOf(size);
    }
    InsertNode(block, sizeFor(rest));
}

SubAllocator::Offset SubAllocator::AllocUnits(std::uint32_t units) {
    const int size = sizeFor(units);
    if (const Offset block = RemoveNode(size)) return block;
    if (_highUnit - _lowUnit >= bytesOf(size)) return std::exchange(_lowUnit, _lowUnit + bytesOf(size));
    return AllocUnitsRare(size);
}

// When there is nothing left between the units in use.
SubAllocator::Offset SubAllocator::AllocUnitsRare(int size) {
    if (const Offset block = RemoveNode(size)) return block;
    if (_glueCount == 0) {
        _glueCount = kGlueInterval;
        GlueFreeBlocks();
        if (const Offset block = RemoveNode(size)) return block;
    }
    const std::uint64_t larger = _filledLists >> size;  // Without the list itself, which is empty.
    if (larger == 0) return takeBelowUnits(size);
    const int largerSize = size + std::countr_zero(larger);
    const Offset block = RemoveNode(largerSize);
    SplitBlock(block, largerSize, size);
    return block;
}

SubAllocator::Offset SubAllocator::takeBelowUnits(int size) {
    --_glueCount;
    if (_unitsStart - _text <= bytesOf(size)) return 0;
    return _unitsStart -= bytesOf(size);
}

// Chains all free blocks, the last one of the last list first.
SubAllocator::Offset SubAllocator::unlinkFreeBlocks() {
    Offset chain = 0;
    for (int size = 0; size < kSizes; ++size) {
        while (const Offset at = RemoveNode(size)) {
            MemBlock& freed = block(at);
            freed.stamp = kFreeStamp;
            freed.units = static_cast<std::uint16_t>(unitsOf(size));
            freed.next = chain;
            freed.previous = 0;
            if (chain) block(chain).previous = at;
            chain = at;
        }
    }
    return chain;
}

// Merges a block with the free ones right behind it, which leave the chain.
void SubAllocator::mergeFollowing(MemBlock& merged, Offset at, Offset& chain) {
    for (;;) {
        const Offset end = at + merged.units * kUnitBytes;
        if (!contains(end, kUnitBytes)) return;
        MemBlock& following = block(end);
        const std::uint32_t units = std::uint32_t{merged.units} + following.units;
        if (following.stamp != kFreeStamp || units > 0xFFFF) return;
        merged.units = static_cast<std::uint16_t>(units);
        following.stamp = 0;
        if (following.previous)
            block(following.previous).next = following.next;
        else
            chain = following.next;
        if (following.next) block(following.next).previous = following.previous;
    }
}

void SubAllocator::insertGlued(Offset at, std::uint32_t units) {
    for (; units > kMostUnits; units -= kMostUnits, at += kMostUnits * kUnitBytes) InsertNode(at, kSizes - 1);
    int size = sizeFor(units);
    if (unitsOf(size) != units) {
        const std::uint32_t rest = units - unitsOf(--size);
        InsertNode(at + (units - rest) * kUnitBytes, sizeFor(rest));
    }
    InsertNode(at, size);
}

// Merges neighbouring free blocks. Order counts: it decides which block the lists hand out next.
void SubAllocator::GlueFreeBlocks() {
    if (_lowUnit != _highUnit) block(_lowUnit).stamp = 0;
    Offset chain = unlinkFreeBlocks();
    for (Offset at = chain; at != 0; at = block(at).next) mergeFollowing(block(at), at, chain);
    while (chain != 0) {
        const MemBlock freed = block(chain);
        insertGlued(std::exchange(chain, freed.next), freed.units);
    }
}

SubAllocator::Offset SubAllocator::ExpandUnits(Offset block, std::uint32_t oldUnits) {
    const int oldSize = sizeFor(oldUnits);
    if (oldSize == sizeFor(oldUnits + 1)) return block;
    const Offset larger = AllocUnits(oldUnits + 1);
    if (larger == 0) return 0;
    std::memcpy(_heap + larger, _heap + block, oldUnits * kUnitBytes);
    InsertNode(block, oldSize);
    return larger;
}

SubAllocator::Offset SubAllocator::ShrinkUnits(Offset block, std::uint32_t oldUnits, std::uint32_t newUnits) {
    const int oldSize = sizeFor(oldUnits);
    const int newSize = sizeFor(newUnits);
    if (oldSize == newSize) return block;
    const Offset smaller = RemoveNode(newSize);
    if (smaller == 0) {
        SplitBlock(block, oldSize, newSize);
        return block;
    }
    std::memcpy(_heap + smaller, _heap + block, newUnits * kUnitBytes);
    InsertNode(block, oldSize);
    return smaller;
}

void SubAllocator::FreeUnits(Offset block, std::uint32_t units) { InsertNode(block, sizeFor(units)); }

}  // namespace ZOV_SPACE
