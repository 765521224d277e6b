// As in RAR 2.0, LZ77 with prefix codes, with a longer reach: the low four bits of far distances have a code of their
// own, one symbol of which repeats them for the distances that follow, as tables of records make useful.
#include "rar/lz/Rar29.h"

#include <algorithm>

namespace ZOV_SPACE {
namespace {

constexpr std::size_t kCodeLengthSymbols = 20;
constexpr std::size_t kFirstCodedLow = 10;  // From this distance symbol on, the low four bits have a code.
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

// Of the far ones, without the low bits.
constexpr auto distanceMeanings() {
    auto meanings = makeRarNumbers<60>(1, distanceBits());
    for (std::size_t symbol = kFirstCodedLow; symbol < meanings.size(); ++symbol) {
        meanings[symbol] = RarMeaning(meanings[symbol].value(), distanceBits()[symbol] - kLowBits);
    }
    return meanings;
}

constexpr auto kMainCode = makeRarMainCode<299>(263, 271);
constexpr auto kDistances = distanceMeanings();
constexpr auto kLowDistances = makeRarSymbols<17>();
constexpr auto kCodeLengths = makeRarSymbols<kCodeLengthSymbols>();
constexpr std::uint32_t kFirstFarDistance = kDistances[kFirstCodedLow].value();

}  // namespace

bool Rar29::readTables(RarBitInputStream& in) {
    _history.lowDistance = _history.lowRepeats = 0;
    if ((in.readBits(2) & 1) == 0) _lengths.fill(0);
    if (!readLengths(in)) return false;
    const unsigned char* lengths = _lengths.data();
    MakeDecodeTables(lengths, kMainCode, &_main);
    MakeDecodeTables(lengths += kMainSymbols, kDistances, &_distances);
    MakeDecodeTables(lengths += kDistanceSymbols, kLowDistances, &_lowDistances);
    MakeDecodeTables(lengths + kLowDistanceSymbols, kRarRepeatLengths, &_repeats);
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
    Decode<8> code;
    MakeDecodeTables(codeLengths.data(), kCodeLengths, &code);

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
[[gnu::always_inline]] inline std::uint32_t Rar29::readDistance(RarHistory& history, Bits& bits) const {
    const RarMeaning entry = readCode(_distances, bits);
    const std::uint32_t number = bits.takeNumber(entry.extraBits());
    if (entry.value() < kFirstFarDistance) return entry.value() + number;
    return entry.value() + (number << kLowBits) + readLowDistance(history, bits);
}

template <class Bits>
[[gnu::always_inline]] inline std::uint32_t Rar29::readLowDistance(RarHistory& history, Bits& bits) const {
    if (history.lowRepeats > 0) {
        --history.lowRepeats;
        return history.lowDistance;
    }
    const std::uint32_t low = DecodeNumber(&_lowDistances, bits);
    if (low == kRepeatLow) {
        history.lowRepeats = kLowRepeatCount;
    } else {
        history.lowDistance = low;
    }
    return history.lowDistance;
}

// Puts the distance in front of those before it; the one at `from` drops out.
[[gnu::always_inline]] static inline void remember(RarHistory& history, std::uint32_t distance, std::size_t from) {
    auto& distances = history.distances;
    // By masks, because a branch on the place, which is anyone's guess, would cost more.
    const auto takeOver = [&](std::size_t at) {
        const std::uint32_t mask = from >= at ? ~0U : 0U;
        distances[at] ^= (distances[at] ^ distances[at - 1]) & mask;
    };
    takeOver(3);
    takeOver(2);
    takeOver(1);
    distances[0] = history.lastDistance = distance;
}

template <class Bits, class Window>
[[gnu::always_inline]] inline void Rar29::copyMatch(RarMeaning entry, RarHistory& history, Bits& bits,
                                                    Window& window) const {
    constexpr std::size_t kNew = 3;  // Where a distance that was not there drops out.
    std::uint32_t distance, length;
    if (entry.value() >= kRarMatch) {
        length = takeRarNumber(entry, bits) - kRarMatch;
        bits.refill();
        distance = readDistance(history, bits);
        length += rarFarBonus(distance);
        remember(history, distance, kNew);
    } else if (entry.value() >= kRarShortMatch) {
        distance = takeRarNumber(entry, bits) - kRarShortMatch;
        length = 2;
        remember(history, distance, kNew);
    } else if (entry.value() >= kOldDistance) {
        const std::size_t index = entry.value() - kOldDistance;
        distance = history.distances[index];
        bits.refill();
        length = takeRarNumber(readCode(_repeats, bits), bits);
        remember(history, distance, index);
    } else {
        distance = history.lastDistance;
        length = history.lastLength;
    }
    history.lastLength = length;
    window.copy(distance, length);
}

std::uint32_t Rar29::run(RarBitInputStream& in, RarBufferOutputStream& out) { return runRarLz(*this, in, out); }

void Rar29::writeSymbol(RarMeaning symbol, RarBitInputStream& in, RarBufferOutputStream& out) {
    if (symbol.value() < 256) {
        out.putch(static_cast<int>(symbol.value()));
        return;
    }
    RarCheckedBits bits(in);
    RarCheckedWindow window(out);
    copyMatch(symbol, _history, bits, window);
}

}  // namespace ZOV_SPACE
