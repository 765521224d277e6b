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
    // The next symbol, which is consumed, and what it writes unless it is a control symbol.
    std::uint32_t readSymbol(RarBitInputStream& in) const { return DecodeNumber(&_main, in); }
    void writeSymbol(std::uint32_t symbol, RarBitInputStream& in, RarBufferOutputStream& out);

    // For runRarLz().
    const Decode* main() const { return &_main; }
    static bool isControl(std::uint32_t symbol) { return symbol - kEndOfBlock <= kVmCode - kEndOfBlock; }
    template <class Bits, class Window>
    void copyMatch(std::uint32_t symbol, Bits& bits, Window& window);

private:
    static constexpr std::uint32_t kRepeatLast = 258, kOldDistance = 259, kShortDistance = 263, kMatch = 271,
                                   kLastSymbol = 298;
    static constexpr std::size_t kMainSymbols = 299, kDistanceSymbols = 60, kLowDistanceSymbols = 17;
    static constexpr std::size_t kAllSymbols =
        kMainSymbols + kDistanceSymbols + kLowDistanceSymbols + kRarLengthSymbols;

    bool readLengths(RarBitInputStream& in);
    template <class Bits>
    std::uint32_t readLength(const Decode& code, Bits& bits) const;
    template <class Bits>
    std::uint32_t readDistance(Bits& bits);
    template <class Bits>
    std::uint32_t readLowDistance(Bits& bits);
    void remember(std::uint32_t distance, std::size_t from);

    RarHistory& _history;
    std::uint32_t _lowDistance = 0;  // The last one coded,
    std::uint32_t _lowRepeats = 0;   // and how often it still holds without being coded.
    std::array<unsigned char, kAllSymbols> _lengths{};
    Decode _main, _distances, _lowDistances, _repeats;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_LZ_RAR29_H
