// RarCopy.h: how matches are copied within the window. Up to 31 bytes behind a copy are overwritten with anything,
// because steps of a fixed size need no decisions about the length, which nothing could predict.
#ifndef PAKFOLD_RAR_RARCOPY_H
#define PAKFOLD_RAR_RARCOPY_H

#include <array>
#include <cstdint>
#include <cstring>

#include "ByteOrder.h"

namespace ZOV_SPACE {

constexpr std::uint32_t kRarFarCopy = 16;

// Copies where source and target are at least kRarFarCopy bytes apart. They may overlap, and what is copied then is
// copied on. Reads as far beyond the source.
[[gnu::always_inline]] inline void rarCopyFar(unsigned char* to, const unsigned char* from, std::uint32_t length) {
    struct Bytes16 {
        std::uint64_t words[2];
    } bytes;
    static_assert(sizeof bytes == kRarFarCopy);
    const unsigned char* const end = to + length;
    const auto step = [&] {
        std::memcpy(&bytes, from, sizeof bytes);
        std::memcpy(to, &bytes, sizeof bytes);
        from += sizeof bytes;
        to += sizeof bytes;
    };
    step();  // Longer matches than this are frequent, and longer ones than two steps are not.
    do step();
    while (to < end);
}

// Repeats the `distance` bytes before the target. REQUIRES: 0 < distance < kRarFarCopy.
[[gnu::always_inline]] inline void rarRepeatNear(unsigned char* to, std::uint32_t distance, std::uint32_t length) {
    // A word that begins with so many bytes of a repetition, the others being 0, becomes one of nothing else by this
    // factor; the next word belongs as many whole periods behind it as fit.
    constexpr std::array<std::uint64_t, 8> kRepeat{1,
                                                   0x0101010101010101,
                                                   0x0001000100010001,
                                                   0x0001000001000001,
                                                   0x0000000100000001,
                                                   0x0000010000000001,
                                                   0x0001000000000001,
                                                   0x0100000000000001};
    constexpr std::array<unsigned char, 8> kPeriods{8, 8, 8, 6, 8, 5, 6, 7};
    const unsigned char* from = to - distance;
    const unsigned char* const end = to + length;
    if (distance >= 8) {
        for (; to < end; to += 8, from += 8) std::memcpy(to, from, 8);
        return;
    }
    const std::uint64_t word = (loadU64(from) & ~(~std::uint64_t{0} << 8 * distance)) * kRepeat[distance];
    for (; to < end; to += kPeriods[distance]) storeLittleEndian(to, word);
}

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_RARCOPY_H
