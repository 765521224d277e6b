// RarLz.h: what the LZ methods of RAR 2.0 and 2.9 have in common: the codes of lengths and short distances, the history
// of matches, and the loop over symbols.
#ifndef PAKFOLD_RAR_LZ_RARLZ_H
#define PAKFOLD_RAR_LZ_RARLZ_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "rar/lz/RarBitCursor.h"
#include "rar/lz/RarHuffman.h"
#include "rar/lz/RarWindowCursor.h"

namespace ZOV_SPACE {

// Numbers coded as a symbol and further bits: base[symbol] plus the number in these bits.
template <std::size_t N>
struct RarNumberCode {
    std::array<std::uint32_t, N> base{};
    std::array<unsigned char, N> bits{};

    // REQUIRES: symbol < N; no code has more than 16 bits.
    template <class Bits>
    std::uint32_t read(std::uint32_t symbol, Bits& in) const {
        const unsigned count = bits[symbol];
        if (count == 0) return base[symbol];
        const std::uint32_t value = base[symbol] + (in.getBits() >> (16 - count));
        in.addBits(static_cast<int>(count));
        return value;
    }
};

// A code whose bases follow from its bits, without gaps, beginning with `first`.
template <std::size_t N>
constexpr RarNumberCode<N> makeRarNumberCode(std::uint32_t first, const std::array<unsigned char, N>& bits) {
    RarNumberCode<N> code;
    code.bits = bits;
    for (std::size_t i = 0; i < N; ++i) {
        code.base[i] = first;
        first += 1U << bits[i];
    }
    return code;
}

constexpr std::size_t kRarLengthSymbols = 28;
inline constexpr auto kRarLengths = makeRarNumberCode<kRarLengthSymbols>(
    0, {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5});

constexpr std::size_t kRarShortDistanceSymbols = 8;
inline constexpr auto kRarShortDistances = makeRarNumberCode<kRarShortDistanceSymbols>(1, {2, 2, 3, 4, 5, 6, 6, 6});

// What repeated matches refer to. One chain of entries keeps one history, whatever their methods.
struct RarHistory {
    std::array<std::uint32_t, 4> distances{};
    std::uint32_t next = 0;  // RAR 2.0 writes `distances` round and round; RAR 2.9 keeps the latest first.
    std::uint32_t lastDistance = 0;
    std::uint32_t lastLength = 0;
};

// Far matches are longer than their code says.
inline std::uint32_t rarFarBonus(std::uint32_t distance) {
    return (distance >= 0x2000 ? 1U : 0U) + (distance >= 0x40000 ? 1U : 0U);
}

constexpr std::uint32_t kRarNoSymbol = 0xFFFFFFFF;

// Decodes symbols as long as neither side needs a check. Returns the control symbol that ended it, which is consumed,
// or kRarNoSymbol. `Method` has main(), isControl(symbol) and copyMatch(symbol, bits, window), which may use 20 bits
// before it refills.
template <class Method>
std::uint32_t runRarLz(Method& method, RarBitInputStream& in, RarBufferOutputStream& out) {
    RarBitCursor bits(in);
    RarWindowCursor window(out);
    if (!bits.ready() || !window.ready()) return kRarNoSymbol;
    const Decode* const main = method.main();
    std::uint32_t control = kRarNoSymbol;
    do {
        bits.refill();
        std::uint32_t symbol = DecodeNumber(main, bits);
        if (symbol < 256) {
            window.put(symbol);
            symbol = DecodeNumber(main, bits);
        }
        if (symbol < 256) {
            window.put(symbol);
        } else if (method.isControl(symbol)) {
            control = symbol;
            break;
        } else {
            method.copyMatch(symbol, bits, window);
        }
    } while (bits.ready() && window.ready());
    bits.sync();
    window.sync();
    return control;
}

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_LZ_RARLZ_H
