// BlockTest.h: the inner loop of SlotFilter, which is all about speed, in one version for each kind of processor.
#ifndef SIGNATURES_BLOCKTEST_H
#define SIGNATURES_BLOCKTEST_H

#include <cstddef>
#include <cstdint>
#include <vector>

constexpr unsigned kBlockSlots = 32;

// A byte's code has two bits set: one of the lowest four, which one its bits 0 and 1 tell, and one of the highest four
// for its bits 2 and 3. Joined with `|`, codes are a set that fits every byte whose code lies in it. A set of one fits
// a sixteenth of all bytes; few other bytes than the wanted ones fit a set of two or three.
constexpr std::uint8_t byteCode(std::uint8_t byte) {
    return static_cast<std::uint8_t>(1U << (byte & 3) | 0x10U << (byte >> 2 & 3));
}

// Two rows of a block: for each of its slots, a set for one byte and a set for the next. An empty set fits nothing.
struct alignas(2 * kBlockSlots) BlockRows {
    std::uint8_t sets[2][kBlockSlots];
};

// A block with hits: bit i stands for its slot i.
struct BlockHits {
    std::uint32_t block;
    std::uint32_t slots;
};

// Tests `blockCount` blocks in a row, the first of which begins at `bytes`. A slot is hit when the four bytes from its
// place on fit its sets: the first two those of `rows1`, the others those of `rows2`. Writes the blocks that have
// hits, numbered from 0 and in no order, to `result`, which has room for all, and returns how many those are. Reads
// three bytes behind the last block.
using BlockTest = std::size_t (*)(const char* bytes, const BlockRows* rows1, const BlockRows* rows2,
                                  std::uint32_t blockCount, BlockHits* result);

// The versions that this processor can run, the fastest one last. All give the same results.
std::vector<BlockTest> availableBlockTests();

BlockTest fastestBlockTest();

#endif  // SIGNATURES_BLOCKTEST_H
