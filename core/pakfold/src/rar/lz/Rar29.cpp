// As in RAR 2.0, LZ77 with prefix codes, with a longer reach: the low four bits of far distances have a code of their
// own, one symbol of which repeats them for the distances that follow, as tables of records make useful.
#include "rar/lz/Rar29.h"

#include <algorithm>
#include <string>

#include "Raise.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"../../core/pakfold/src/unarchiver/RarCompressor"};

constexpr int kCodeLengthSymbols = 20;
constexpr std::uint32_t kFirstCodedLow = 10;  // From this distance symbol on, the low four bits have a code.
constexpr std::uint32_t kLowBits = 4;
constexpr std::uint32_t kRepeatLow = 16;       // Of that code: the last low bits again,
constexpr std::uint32_t kLowRepeatCount = 15;  // and for so many more distances.

constexpr std::array<unsigned char, 60> distanceBits() {
    constexpr std::array<unsigned char, 19> kSymbolsPerBits{4, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 14, 0, 12};
    std::array<unsigned char, 60> bits{};
    std::size_t symbol = 0;
    for (std::size_t count = 0; count < kSymbolsPerBits.size(); ++count) {
        for (unsigned i = 0; i < kSymbolsPerBits[count]; ++i) bits[symbol++] = static_cast<unsigned char>(count);
    }
    return bits;
}

constexpr auto kDistances = makeRarNumberCode<60>(1, distanceBits());

[[noreturn]] void raiseOverflow(const char* what, std::uint32_t number) {
    kUnit.raise<CompressionException>(what + std::to_string(number));
}

}  // namespace

bool Rar29::readTables(RarBitInputStream& in) {
    _lowDistance = _lowRepeats = 0;
    if ((in.readBits(2) & 1) == 0) _lengths.fill(0);
    if (!readLengths(in)) return false;
    const unsigned char* lengths = _lengths.data();
    MakeDecodeTables(lengths, &_main, kMainSymbols);
    MakeDecodeTables(lengths += kMainSymbols, &_distances, kDistanceSymbols);
    MakeDecodeTables(lengths += kDistanceSymbols, &_lowDistances, kLowDistanceSymbols);
    MakeDecodeTables(lengths + kLowDistanceSymbols, &_repeats, kRarLengthSymbols);
    return true;
}

// The lengths of the code for code lengths: four bits each, 15 and a count for a run of zeros.
static void readCodeLengths(RarBitInputStream& in, std::array<unsigned char, kCodeLengthSymbols>& lengths) {
    lengths.fill(0);
    for (std::size_t i = 0; i < lengths.size(); ++i) {
        lengths[i] = static_cast<unsigned char>(in.readBits(4));
        if (lengths[i] != 15) continue;
        const std::size_t zeros = in.readBits(4);
        if (zeros == 0) continue;
        lengths[i] = 0;
        i += zeros + 1;
    }
}

// Code lengths are coded themselves, as differences to the lengths before.
bool Rar29::readLengths(RarBitInputStream& in) {
    std::array<unsigned char, kCodeLengthSymbols> codeLengths;
    readCodeLengths(in, codeLengths);
    Decode code;
    MakeDecodeTables(codeLengths.data(), &code, kCodeLengthSymbols);

    for (std::size_t i = 0; i < kAllSymbols;) {
        const std::uint32_t symbol = DecodeNumber(&code, in);
        if (symbol < 16) {
            _lengths[i] = static_cast<unsigned char>((_lengths[i] + symbol) & 15);
            ++i;
            continue;
        }
        const bool repeat = symbol < 18;
        if (repeat && i == 0) return false;
        const std::size_t run = symbol % 2 == 0 ? in.readBits(3) + 3 : in.readBits(7) + 11;
        const std::size_t end = std::min(i + run, kAllSymbols);
        std::fill(_lengths.data() + i, _lengths.data() + end, repeat ? _lengths[i - 1] : static_cast<unsigned char>(0));
        i = end;
    }
    return true;
}

template <class Bits>
[[gnu::always_inline]] inline std::uint32_t Rar29::readLength(const Decode& code, Bits& bits) const {
    const std::uint32_t number = DecodeNumber(&code, bits);
    if (number >= kRarLengthSymbols) [[unlikely]] {
        raiseOverflow("Rar decompression out of bound: LengthNumber=", number);
    }
    return kRarLengths.read(number, bits);
}

template <class Bits>
[[gnu::always_inline]] inline std::uint32_t Rar29::readDistance(Bits& bits) {
    const std::uint32_t number = DecodeNumber(&_distances, bits);
    if (number >= kDistanceSymbols) [[unlikely]]
        raiseOverflow("Decoding overfilow: DistNumber=", number);
    if (number < kFirstCodedLow) return kDistances.read(number, bits);
    std::uint32_t distance = kDistances.base[number];
    const std::uint32_t high = kDistances.bits[number] - kLowBits;
    if (high > 0) {
        distance += bits.getBits() >> (16 - high) << kLowBits;
        bits.addBits(static_cast<int>(high));
    }
    return distance + readLowDistance(bits);
}

template <class Bits>
[[gnu::always_inline]] inline std::uint32_t Rar29::readLowDistance(Bits& bits) {
    if (_lowRepeats > 0) {
        --_lowRepeats;
        return _lowDistance;
    }
    const std::uint32_t low = DecodeNumber(&_lowDistances, bits);
    if (low == kRepeatLow) {
        _lowRepeats = kLowRepeatCount;
    } else {
        _lowDistance = low;
    }
    return _lowDistance;
}

// Puts the distance in front of those before it; the one at `from` drops out.
inline void Rar29::remember(std::uint32_t distance, std::size_t from) {
    auto& distances = _history.distances;
    for (std::size_t i = from; i > 0; --i) distances[i] = distances[i - 1];
    distances[0] = _history.lastDistance = distance;
}

template <class Bits, class Window>
[[gnu::always_inline]] inline void Rar29::copyMatch(std::uint32_t symbol, Bits& bits, Window& window) {
    std::uint32_t distance, length;
    if (symbol >= kMatch) {
        length = kRarLengths.read(symbol - kMatch, bits) + 3;
        bits.refill();
        distance = readDistance(bits);
        length += rarFarBonus(distance);
        remember(distance, 3);
    } else if (symbol == kRepeatLast) {
        distance = _history.lastDistance;
        length = _history.lastLength;
    } else if (symbol < kShortDistance) {
        const std::size_t index = symbol - kOldDistance;
        distance = _history.distances[index];
        length = readLength(_repeats, bits) + 2;
        remember(distance, index);
    } else {
        distance = kRarShortDistances.read(symbol - kShortDistance, bits);
        length = 2;
        remember(distance, 3);
    }
    _history.lastLength = length;
    window.copy(distance, length);
}

std::uint32_t Rar29::run(RarBitInputStream& in, RarBufferOutputStream& out) { return runRarLz(*this, in, out); }

void Rar29::writeSymbol(std::uint32_t symbol, RarBitInputStream& in, RarBufferOutputStream& out) {
    if (symbol < 256) {
        out.putch(static_cast<int>(symbol));
        return;
    }
    if (symbol > kLastSymbol) raiseOverflow("Decoding overfilow: Number=", symbol);
    RarCheckedBits bits(in);
    RarCheckedWindow window(out);
    copyMatch(symbol, bits, window);
}

}  // namespace ZOV_SPACE
