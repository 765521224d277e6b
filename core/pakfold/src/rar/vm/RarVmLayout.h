// RarVmLayout.h: the memory of RAR's virtual machine, as published with it.
//
//     0x00000  the block that a program works on; results lie where the program says
//     0x3C000  the global area: fixed fields, then data that a program keeps from one run to the next, then its
//              static data
//     0x3E000  the stack, from the end downwards
#ifndef PAKFOLD_RAR_VM_RARVMLAYOUT_H
#define PAKFOLD_RAR_VM_RARVMLAYOUT_H

#include <array>
#include <cstdint>

namespace ZOV_SPACE {

// The fixed fields at the start of the global area: 32-bit numbers, little-endian, read and written with ByteOrder.h.
struct RarVmGlobals {
    std::array<std::uint32_t, 7> registers;  // R0 to R6 as the run began.
    std::uint32_t blockLength;               // Of the block, and of the result when the run has ended.
    std::uint32_t blockStart;                // Of the result, in the memory.
    std::array<std::uint32_t, 2> position;   // Of the block in the entry's output: low and high word.
    std::uint32_t uses;                      // Of the program before this one.
    std::uint32_t keptBytes;                 // Behind these fields, to be kept for the next run.
    std::array<std::uint32_t, 3> unused;
};
static_assert(sizeof(RarVmGlobals) == 64);

struct RarVmLayout {
    static constexpr std::uint32_t kMemoryBytes = 0x40000;
    static constexpr std::uint32_t kGlobalAddress = 0x3C000;  // Filtered blocks end here at the latest.
    static constexpr std::uint32_t kGlobalBytes = 0x2000;
    static constexpr std::uint32_t kFixedGlobalBytes = sizeof(RarVmGlobals);
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_VM_RARVMLAYOUT_H
