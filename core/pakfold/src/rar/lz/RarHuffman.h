// RarHuffman.h: the prefix codes of RAR 2.0 and 2.9: canonical codes of 1 to 15 bits, given by their lengths.
//
// Lengths come from the archive and need not make a complete code, nor a possible one. Whatever they are, every bit
// pattern decodes to a symbol of the alphabet.
#ifndef PAKFOLD_RAR_LZ_RARHUFFMAN_H
#define PAKFOLD_RAR_LZ_RARHUFFMAN_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace ZOV_SPACE {

// What a symbol means: a value, to which the number in the bits behind the code is added. As an entry of a code it has
// the code's length, too, so that one look into a table answers how much there is to consume.
struct RarMeaning {
    static constexpr std::uint32_t kLargestValue = (1U << 23) - 1;

    constexpr RarMeaning(std::uint32_t value = 0, std::uint32_t extraBits = 0)
        : _packed(value << kValueShift | extraBits << kExtraShift) {}
    constexpr RarMeaning withLength(std::uint32_t length) const { return RarMeaning(*this, length); }

    constexpr std::uint32_t value() const { return _packed >> kValueShift; }
    constexpr int extraBits() const { return static_cast<int>(_packed >> kExtraShift & 31); }
    constexpr int length() const { return static_cast<int>(_packed & 15); }  // 0: no entry.

private:
    static constexpr unsigned kExtraShift = 4, kValueShift = 9;

    constexpr RarMeaning(RarMeaning meaning, std::uint32_t length) : _packed(meaning._packed | length) {}

    std::uint32_t _packed;
};

// Symbols that mean themselves.
template <std::size_t N>
constexpr std::array<RarMeaning, N> makeRarSymbols() {
    std::array<RarMeaning, N> meanings{};
    for (std::uint32_t i = 0; i < N; ++i) meanings[i] = RarMeaning(i);
    return meanings;
}

// A code, for the patterns that no table answers. Codes are looked at left-aligned in 16 bits, of which the last is
// always 0.
struct RarCodeRanges {
    static constexpr int kLongestCode = 15;
    static constexpr std::size_t kMostSymbols = 299;

    // Codes of i bits lie below limit[i] and at or above limit[i - 1]; the first of them has meanings[position[i]].
    std::array<std::uint32_t, kLongestCode + 1> limit{};
    std::array<std::uint32_t, kLongestCode + 1> position{};
    std::uint32_t size = 0;  // Of the alphabet.
    std::array<RarMeaning, kMostSymbols> meanings{};
};

// One code, ready for decoding, with a table by the first kQuickBits, whose entries for longer codes are without
// length. All of a table is looked at, and all tables together should leave room in the first cache.
template <int kQuickBits>
struct Decode {
    RarCodeRanges ranges;
    std::array<RarMeaning, std::size_t{1} << kQuickBits> quick{};
};

// REQUIRES: as many lengths, below 16, as meanings; the latter are 1 to RarCodeRanges::kMostSymbols.
void makeCodeRanges(const unsigned char* lengths, std::span<const RarMeaning> meanings, RarCodeRanges& ranges);
void makeQuickTable(const RarCodeRanges& ranges, unsigned bits, RarMeaning* table);

template <std::size_t N, int kQuickBits>
void MakeDecodeTables(const unsigned char* lengths, const std::array<RarMeaning, N>& meanings,
                      Decode<kQuickBits>* decode) {
    static_assert(0 < N && N <= RarCodeRanges::kMostSymbols);
    makeCodeRanges(lengths, meanings, decode->ranges);
    makeQuickTable(decode->ranges, kQuickBits, decode->quick.data());
}

// A code that is too long for the table, or a pattern that is none.
RarMeaning decodeLongCode(const RarCodeRanges& ranges, std::uint32_t bits);

// Reads one code, without the bits behind it; `Bits` has getBits() and addBits() like a RarBitInputStream.
template <int kQuickBits, class Bits>
inline RarMeaning readCode(const Decode<kQuickBits>& decode, Bits& in) {
    const std::uint32_t bits = in.getBits();
    RarMeaning entry = decode.quick[bits >> (16 - kQuickBits)];
    if (entry.length() == 0) [[unlikely]]
        entry = decodeLongCode(decode.ranges, bits);
    in.addBits(entry.length());
    return entry;
}

// A code whose symbols mean themselves.
template <int kQuickBits, class Bits>
inline std::uint32_t DecodeNumber(const Decode<kQuickBits>* decode, Bits& in) {
    return readCode(*decode, in).value();
}

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_LZ_RARHUFFMAN_H
