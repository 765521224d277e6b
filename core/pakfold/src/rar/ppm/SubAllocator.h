// SubAllocator: the memory of a PPMd variant H model, as published with it.
//
// One heap holds everything. From its start upwards grows the text: the latest symbols, which contexts that were not
// made yet refer to. The rest is cut into units of 12 bytes: contexts are taken from the end downwards, arrays of
// states from the start of the units upwards, what was freed comes from 38 lists by size. When the encoder runs out of
// memory it starts its model anew, and so must the decoder, at the same symbol: places are therefore 32-bit offsets
// from the heap's start on every machine, and each structure is as large as it was on the 32-bit one of the encoder.
#ifndef PAKFOLD_RAR_PPM_SUBALLOCATOR_H
#define PAKFOLD_RAR_PPM_SUBALLOCATOR_H

#include <array>
#include <cstdint>

#include "io/MallocBytes.h"

namespace ZOV_SPACE {

class SubAllocator {
public:
    using Offset = std::uint32_t;  // From the heap's start; 0 is nothing, because only text stands there.

    static constexpr std::uint32_t kUnitBytes = 12;
    static constexpr int kMostMegabytes = 256;

    SubAllocator() = default;
    SubAllocator(const SubAllocator&) = delete;
    SubAllocator& operator=(const SubAllocator&) = delete;
    ~SubAllocator() { StopSubAllocator(); }

    // Gets a heap of 1 to kMostMegabytes, whose content is arbitrary; one of that size is kept. Waits for it when the
    // heaps of other threads take all that there is for them.
    //   Throws:  OutOfMemoryException "Out of memory", OutOfBudgetException; there is no heap then.
    void StartSubAllocator(int megabytes);
    void StopSubAllocator();
    // Frees everything in the heap.
    void InitSubAllocator();

    // All return 0 when there is no memory for it. `units` is 1 to 128.
    Offset AllocContext() {
        if (_highUnit != _lowUnit) return _highUnit -= kUnitBytes;
        return AllocUnitsRare(0);
    }
    Offset AllocUnits(std::uint32_t units);
    // Moves a block to one that has room for a unit more. Without memory, the old one stays.
    Offset ExpandUnits(Offset block, std::uint32_t oldUnits);

    Offset ShrinkUnits(Offset block, std::uint32_t oldUnits, std::uint32_t newUnits);
    void FreeUnits(Offset block, std::uint32_t units);

    // The text is full when this returns false.
    bool appendText(unsigned char symbol) {
        _heap[_text++] = symbol;
        return _text < _unitsStart;
    }
    void dropText() { --_text; }
    Offset textEnd() const { return _text; }

    std::uint32_t size() const { return _size; }            // 0: no heap.
    std::uint32_t heapBytes() const { return _heapBytes; }  // As allocated.
    // Whether `bytes` bytes at an offset that the model read are in the heap.
    bool contains(Offset at, std::uint32_t bytes) const { return at - 1 < _size - bytes; }
    unsigned char* at(Offset offset) const { return _heap + offset; }
    Offset offsetOf(const void* place) const {
        return static_cast<Offset>(static_cast<const unsigned char*>(place) - _heap);
    }

private:
    static constexpr int kSizes = 38;

    struct MemBlock;

    void Clean();
    Offset AllocUnitsRare(int size);
    Offset takeBelowUnits(int size);
    void GlueFreeBlocks();
    Offset unlinkFreeBlocks();
    void mergeFollowing(MemBlock& merged, Offset at, Offset& chain);
    void insertGlued(Offset at, std::uint32_t units);

    void InsertNode(Offset block, int size);
    Offset RemoveNode(int size);
    void SplitBlock(Offset block, int oldSize, int newSize);
    MemBlock& block(Offset at) const;

    MallocBytes _memory;
    unsigned char* _heap = nullptr;
    std::uint32_t _size = 0;
    std::uint32_t _heapBytes = 0;
    Offset _text = 0;
    Offset _unitsStart = 0;
    Offset _lowUnit = 0;  // Between these two lies what was never used.
    Offset _highUnit = 0;
    std::uint32_t _glueCount = 0;    // Failures to go until free blocks are merged again.
    std::uint64_t _filledLists = 0;  // Bit i: list i is not empty.
    std::array<Offset, kSizes> _freeLists{};
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_PPM_SUBALLOCATOR_H
