// RuledOutSymbols: which symbols the longer contexts, that were escaped from, have ruled out; and what frequencies the
// others have together in a shorter one. Contexts of few symbols have hundreds of states, so that these sums are where
// a PPM decoder spends most of its time besides waiting for memory.
#ifndef PAKFOLD_RAR_PPM_RULEDOUTSYMBOLS_H
#define PAKFOLD_RAR_PPM_RULEDOUTSYMBOLS_H

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "rar/ppm/PpmContext.h"

namespace ZOV_SPACE {

// Used by one thread at a time.
class RuledOutSymbols {
public:
    // Symbols h * 16 + l: bit h % 8 of byte l, or of byte 16 + l when h is 8 or more, so that an instruction that looks
    // into a register by four bits finds many symbols at once.
    using Bits = std::array<unsigned char, 32>;
    using Frequencies = std::array<std::uint16_t, 256>;  // Of states, in order; 0 for those that are ruled out.
    using Sum = std::uint32_t (*)(const Bits& ruledOut, const STATE* states, unsigned count, Frequencies& frequencies);

    // Those that this processor has, the fastest last. All come to the same.
    static std::vector<Sum> availableSums();

    void clear() { _bits.fill(0); }
    void add(std::span<const STATE> states) {
        for (const STATE& state : states) _bits[byteOf(state.symbol)] |= bitOf(state.symbol);
    }
    // The frequencies and their sum. REQUIRES: at most 256 states.
    std::uint32_t sumOfOthers(std::span<const STATE> states, Frequencies& frequencies) const {
        return _sum(_bits, states.data(), static_cast<unsigned>(states.size()), frequencies);
    }
    static bool contains(const Bits& ruledOut, unsigned char symbol) {
        return (ruledOut[byteOf(symbol)] & bitOf(symbol)) != 0;
    }
    bool contains(unsigned char symbol) const { return contains(_bits, symbol); }

private:
    static unsigned byteOf(unsigned char symbol) { return (symbol & 15U) | (symbol >> 3 & 16U); }
    static unsigned char bitOf(unsigned char symbol) { return static_cast<unsigned char>(1U << (symbol >> 4 & 7)); }

    alignas(16) Bits _bits{};
    Sum _sum = availableSums().back();
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_PPM_RULEDOUTSYMBOLS_H
