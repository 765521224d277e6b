// RarCopy.h: how matches are copied within the window.
#ifndef PAKFOLD_RAR_RARCOPY_H
#define PAKFOLD_RAR_RARCOPY_H

#include <cstdint>
#include <cstring>

namespace ZOV_SPACE {

// Copies of at least 16 bytes' distance, in either direction. They copy at most 16 bytes at a time and never a byte
// beyond the end: what stands there is still part of the dictionary.
constexpr std::uint32_t kRarFarCopy = 16;

// Copies where source and target are at least kRarFarCopy bytes apart. They may overlap, and what is copied then is
// copied on.
[[gnu::always_inline]] inline void rarCopyFar(unsigned char* to, const unsigned char* from, std::uint32_t length) {
    const auto copy = [&]<class Unit>(std::uint32_t at, Unit unit) {
        std::memcpy(&unit, from + at, sizeof unit);
        std::memcpy(to + at, &unit, sizeof unit);
    };
    struct Bytes16 {
        std::uint64_t words[2];
    };
    if (length >= 16) {
        const std::uint32_t last = length - 16;
        for (std::uint32_t at = 0; at < last; at += 16) copy(at, Bytes16{});
        copy(last, Bytes16{});
    } else if (length >= 8) {
        copy(0, std::uint64_t{});
        copy(length - 8, std::uint64_t{});
    } else if (length >= 4) {
        copy(0, std::uint32_t{});
        copy(length - 4, std::uint32_t{});
    } else {
        for (std::uint32_t i = 0; i < length; ++i) to[i] = from[i];
    }
}

// Repeats the `distance` bytes before the target. REQUIRES: 0 < distance < kRarFarCopy.
void rarRepeatNear(unsigned char* to, std::uint32_t distance, std::uint32_t length);

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_RARCOPY_H
