// BlockTest.h: the inner loop of SlotFilter, which is all about speed, in one version for each kind of processor.
#ifndef SIGNATURES_BLOCKTEST_H
#define SIGNATURES_BLOCKTEST_H

#include <cstddef>
#include <cstdint>
#include <vector>

constexpr unsigned kBlockSlots = 32;

// A block with hits: bit i stands for its slot i.
struct BlockHits {
    std::uint32_t block;
    std::uint32_t slots;
};

// Tests `blockCount` blocks of kBlockSlots slots in a row, whose layers lie one behind the other: layerCount rows of
// first bytes, then as many of second ones. A slot is hit when, in some layer, its two bytes are those at its place in
// `bytes`. Writes the blocks that have hits, numbered from 0, and returns how many those are. Reads one byte behind the
// last block.
using BlockTest = std::size_t (*)(const char* bytes, const unsigned char* layers, unsigned layerCount,
                                  std::uint32_t blockCount, BlockHits* result);

// The versions that this processor can run, the fastest one last. All give the same results.
std::vector<BlockTest> availableBlockTests();

BlockTest fastestBlockTest();

#endif  // SIGNATURES_BLOCKTEST_H
