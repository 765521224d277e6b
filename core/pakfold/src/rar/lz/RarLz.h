// RarLz.h: what the LZ methods of RAR 2.0 and 2.9 have in common: what symbols mean, the history of matches, and the
// loop over symbols.
#ifndef PAKFOLD_RAR_LZ_RARLZ_H
#define PAKFOLD_RAR_LZ_RARLZ_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "rar/lz/RarBitCursor.h"
#include "rar/lz/RarHuffman.h"
#include "rar/lz/RarWindowCursor.h"

namespace ZOV_SPACE {

// Numbers coded as a symbol and further bits: what comes before a symbol's own numbers follows from the bits, without
// gaps, beginning with `first`.
template <std::size_t N>
constexpr std::array<RarMeaning, N> makeRarNumbers(std::uint32_t first, const std::array<unsigned char, N>& bits) {
    std::array<RarMeaning, N> numbers{};
    for (std::size_t i = 0; i < N; ++i) {
        numbers[i] = RarMeaning(first, bits[i]);
        first += 1U << bits[i];
    }
    return numbers;
}

constexpr std::size_t kRarLengthSymbols = 28;
constexpr std::array<unsigned char, kRarLengthSymbols> kRarLengthBits{0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2,
                                                                      2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5};
constexpr std::size_t kRarShortDistanceSymbols = 8;
constexpr std::array<unsigned char, kRarShortDistanceSymbols> kRarShortDistanceBits{2, 2, 3, 4, 5, 6, 6, 6};

// Lengths of matches at a distance that came before.
inline constexpr auto kRarRepeatLengths = makeRarNumbers<kRarLengthSymbols>(2, kRarLengthBits);

// Of the main code, what is neither a literal nor one of the few symbols behind these has a value by its kind, the
// most frequent last: first distances of matches of two bytes, then lengths of matches whose distance follows.
constexpr std::uint32_t kRarShortMatch = 0x200, kRarMatch = 0x400;

// Places these at the end of a main code whose first symbols mean themselves.
template <std::size_t N>
constexpr std::array<RarMeaning, N> makeRarMainCode(std::size_t shortDistance, std::size_t match) {
    auto meanings = makeRarSymbols<N>();
    for (const RarMeaning meaning : makeRarNumbers(kRarShortMatch + 1, kRarShortDistanceBits)) {
        meanings[shortDistance++] = meaning;
    }
    for (const RarMeaning meaning : makeRarNumbers(kRarMatch + 3, kRarLengthBits)) meanings[match++] = meaning;
    return meanings;
}

// A value and the number behind its code. `Bits` is one of RarBitCursor.h.
template <class Bits>
[[gnu::always_inline]] inline std::uint32_t takeRarNumber(RarMeaning entry, Bits& bits) {
    return entry.value() + bits.takeNumber(entry.extraBits());
}

// What repeated matches refer to. One chain of entries keeps one history, whatever their methods.
struct RarHistory {
    std::array<std::uint32_t, 4> distances{};
    std::uint32_t next = 0;  // RAR 2.0 writes `distances` round and round; RAR 2.9 keeps the latest first.
    std::uint32_t lastDistance = 0;
    std::uint32_t lastLength = 0;
    std::uint32_t lowDistance = 0;  // Of RAR 2.9: the last low bits that were coded,
    std::uint32_t lowRepeats = 0;   // and how often they still hold without being coded.
};

// Far matches are longer than their code says. The sign of a difference says it without a branch.
// REQUIRES: distance < 2^31.
inline std::uint32_t rarFarBonus(std::uint32_t distance) {
    return ((0x1FFF - distance) >> 31) + ((0x3FFFF - distance) >> 31);
}

constexpr std::uint32_t kRarNoSymbol = 0xFFFFFFFF;

// Decodes symbols as long as neither side needs a check. Returns the control symbol that ended it, which is consumed,
// or kRarNoSymbol. `Method` has main(), history(), isControl(symbol) and copyMatch(entry, history, bits, window),
// which may use 11 bits before it refills.
template <class Method>
std::uint32_t runRarLz(Method& method, RarBitInputStream& in, RarBufferOutputStream& out) {
    RarBitCursor bits(in);
    RarWindowCursor window(out);
    if (!bits.ready() || !window.ready()) return kRarNoSymbol;
    const auto& main = method.main();
    RarHistory history = method.history();  // A copy: bytes that are written cannot be part of it.
    std::uint32_t control = kRarNoSymbol;
    do {
        bits.refill();
        RarMeaning entry = readCode(main, bits);
        for (unsigned more = RarWindowCursor::kMostLiterals - 1; more > 0 && entry.value() < 256; --more) {
            window.put(entry.value());
            entry = readCode(main, bits);
        }
        if (entry.value() < 256) {
            window.put(entry.value());
        } else if (Method::isControl(entry.value())) [[unlikely]] {
            control = entry.value();
            break;
        } else {
            method.copyMatch(entry, history, bits, window);
        }
    } while (bits.ready() && window.ready());
    method.history() = history;
    bits.sync();
    window.sync();
    return control;
}

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_LZ_RARLZ_H
