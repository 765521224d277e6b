// RarHuffman.h: the prefix codes of RAR 2.0 and 2.9: canonical codes of 1 to 15 bits, given by their lengths.
//
// Lengths come from the archive and need not make a complete code, nor a possible one. Whatever they are, every bit
// pattern decodes to a symbol of the alphabet.
#ifndef PAKFOLD_RAR_LZ_RARHUFFMAN_H
#define PAKFOLD_RAR_LZ_RARHUFFMAN_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace ZOV_SPACE {

// One code, ready for decoding. Codes are looked at left-aligned in 16 bits, of which the last is always 0.
struct Decode {
    static constexpr int kLongestCode = 15;
    static constexpr std::size_t kMostSymbols = 299;
    static constexpr int kQuickBits = 10;

    // Codes of i bits lie below limit[i] and at or above limit[i - 1]; the first of them has symbols[position[i]].
    std::array<std::uint32_t, kLongestCode + 1> limit{};
    std::array<std::uint32_t, kLongestCode + 1> position{};
    std::uint32_t size = 0;  // Of the alphabet.
    std::array<std::uint16_t, kMostSymbols> symbols{};
    // By the first kQuickBits: symbol << 4 | length of its code; 0 for longer codes.
    std::array<std::uint16_t, std::size_t{1} << kQuickBits> quick{};
};

// REQUIRES: `size` lengths below 16; 0 < size <= Decode::kMostSymbols.
void MakeDecodeTables(const unsigned char* lengths, Decode* decode, int size);

// A code of more than kQuickBits, or a pattern that is none: symbol << 4 | length.
std::uint32_t decodeLongCode(const Decode& decode, std::uint32_t bits);

// Reads one symbol; `Bits` has getBits() and addBits() like a RarBitInputStream.
template <class Bits>
inline std::uint32_t DecodeNumber(const Decode* decode, Bits& in) {
    const std::uint32_t bits = in.getBits();
    std::uint32_t entry = decode->quick[bits >> (16 - Decode::kQuickBits)];
    if (entry == 0) [[unlikely]]
        entry = decodeLongCode(*decode, bits);
    in.addBits(static_cast<int>(entry & 15));
    return entry >> 4;
}

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_LZ_RARHUFFMAN_H
