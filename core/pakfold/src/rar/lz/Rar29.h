// Rar29.h: the LZ blocks of the RAR 2.9 method: LZ77 with prefix codes. What else its blocks hold is up to the session.
#ifndef PAKFOLD_RAR_LZ_RAR29_H
#define PAKFOLD_RAR_LZ_RAR29_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "rar/lz/RarLz.h"

namespace ZOV_SPACE {

// One chain of solid entries.
class Rar29 {
public:
    static constexpr std::uint32_t kEndOfBlock = 256, kVmCode = 257;  // The control symbols.

    explicit Rar29(RarHistory& history) : _history(history) {}

    void reset() { _lengths.fill(0); }  // For an entry that continues none; its tables must be read then.
    // Reads the tables at the head of a block, whose first bit is still there. False when they make no sense.
    bool readTables(RarBitInputStream& in);

    // Decodes as far as no check is due, which may be nothing. Returns the control symbol that ended it, which is
    // consumed, or kRarNoSymbol.
    std::uint32_t run(RarBitInputStream& in, RarBufferOutputStream& out);
    // The next symbol, whose code is consumed, and what it writes unless it is a control symbol.
    RarMeaning readSymbol(RarBitInputStream& in) const { return readCode(_main, in); }
    void writeSymbol(RarMeaning symbol, RarBitInputStream& in, RarBufferOutputStream& out);
    static bool isControl(std::uint32_t symbol) { return symbol - kEndOfBlock <= kVmCode - kEndOfBlock; }

    // For runRarLz().
    const auto& main() const { return _main; }
    RarHistory& history() { return _history; }
    template <class Bits, class Window>
    void copyMatch(RarMeaning entry, RarHistory& history, Bits& bits, Window& window) const;

private:
    static constexpr std::uint32_t kRepeatLast = 258, kOldDistance = 259;
    static constexpr std::size_t kShortDistance = 263, kMatch = 271;
    static constexpr std::size_t kMainSymbols = 299, kDistanceSymbols = 60, kLowDistanceSymbols = 17;
    static constexpr std::size_t kAllSymbols =
        kMainSymbols + kDistanceSymbols + kLowDistanceSymbols + kRarLengthSymbols;

    bool readLengths(RarBitInputStream& in);
    template <class Bits>
    std::uint32_t readDistance(RarHistory& history, Bits& bits) const;
    template <class Bits>
    std::uint32_t readLowDistance(RarHistory& history, Bits& bits) const;

    RarHistory& _history;
    std::array<unsigned char, kAllSymbols> _lengths{};
    Decode<11> _main;
    Decode<9> _distances;
    Decode<7> _lowDistances;
    Decode<8> _repeats;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_LZ_RAR29_H
