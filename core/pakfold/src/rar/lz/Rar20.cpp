// LZ77 over a window, with prefix codes for literals and lengths, distances, and lengths of repeated distances. Tables
// come at the start and wherever a symbol asks for new ones; they are coded as differences to the ones before. In the
// multimedia mode there are no matches: each channel has a code for the differences that RarAudio adds up.
#include "rar/lz/Rar20.h"

#include <algorithm>

#include "Exception.h"

namespace ZOV_SPACE {
namespace {

constexpr std::size_t kCodeLengthSymbols = 19;

constexpr std::array<unsigned char, 48> kDistanceBits{0,  0,  0,  0,  1,  1,  2,  2,  3,  3,  4,  4,  5,  5,  6,  6,
                                                      7,  7,  8,  8,  9,  9,  10, 10, 11, 11, 12, 12, 13, 13, 14, 14,
                                                      15, 15, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16};
constexpr auto kMainCode = makeRarMainCode<298>(261, 270);
constexpr auto kDistances = makeRarNumbers<48>(1, kDistanceBits);
constexpr auto kAudioDeltas = makeRarSymbols<257>();
constexpr auto kCodeLengths = makeRarSymbols<kCodeLengthSymbols>();

}  // namespace

void Rar20::reset() {
    _audioMode = false;
    _audio.reset();
    _lengths.fill(0);
}

bool Rar20::ReadTables20(RarBitInputStream& in) {
    const std::uint32_t flags = in.readBits(2);
    _audioMode = (flags & 2) != 0;
    if ((flags & 1) == 0) _lengths.fill(0);
    if (!_audioMode) {
        if (!readLengths(in, kMainSymbols + kDistanceSymbols + kRarLengthSymbols)) return false;
        const unsigned char* lengths = _lengths.data();
        MakeDecodeTables(lengths, kMainCode, &_main);
        MakeDecodeTables(lengths += kMainSymbols, kDistances, &_distances);
        MakeDecodeTables(lengths + kDistanceSymbols, kRarRepeatLengths, &_repeats);
        return true;
    }
    _audio.setChannels(in.readBits(2) + 1);
    if (!readLengths(in, kAudioSymbols * _audio.channels())) return false;
    for (std::size_t i = 0; i < _audio.channels(); ++i) {
        MakeDecodeTables(_lengths.data() + i * kAudioSymbols, kAudioDeltas, &_channels[i]);
    }
    return true;
}

// Code lengths are coded themselves, as differences to the lengths before.
bool Rar20::readLengths(RarBitInputStream& in, std::size_t count) {
    std::array<unsigned char, kCodeLengthSymbols> codeLengths;
    for (auto& length : codeLengths) length = static_cast<unsigned char>(in.readBits(4));
    Decode<8> code;
    MakeDecodeTables(codeLengths.data(), kCodeLengths, &code);

    for (std::size_t i = 0; i < count;) {
        const std::uint32_t symbol = DecodeNumber(&code, in);
        if (symbol < 16) {
            _lengths[i] = static_cast<unsigned char>((_lengths[i] + symbol) & 15);
            ++i;
            continue;
        }
        const bool repeat = symbol == 16;
        if (repeat && i == 0) return false;
        const std::size_t run = repeat ? in.readBits(2) + 3 : symbol == 17 ? in.readBits(3) + 3 : in.readBits(7) + 11;
        const std::size_t end = std::min(i + run, count);
        std::fill(_lengths.data() + i, _lengths.data() + end, repeat ? _lengths[i - 1] : static_cast<unsigned char>(0));
        i = end;
    }
    return true;
}

void Rar20::ReadLastTables(RarBitInputStream& in) {
    constexpr std::int64_t kFewest = 5;  // Bytes. What comes before the end without tables is shorter.
    if (in.left() < kFewest) return;
    try {
        const bool tables = _audioMode ? DecodeNumber(&_channels[_audio.currentChannel()], in) == kNewAudioTables
                                       : DecodeNumber(&_main, in) == kNewTables;
        if (tables) ReadTables20(in);
    } catch (const IOException&) {
        // They were none, or are damaged. This entry is complete.
    }
}

template <class Bits, class Window>
[[gnu::always_inline]] inline void Rar20::copyMatch(RarMeaning entry, RarHistory& history, Bits& bits,
                                                    Window& window) const {
    std::uint32_t distance, length;
    if (entry.value() >= kRarMatch) {
        length = takeRarNumber(entry, bits) - kRarMatch;
        bits.refill();
        distance = takeRarNumber(readCode(_distances, bits), bits);
        length += rarFarBonus(distance);
    } else if (entry.value() >= kRarShortMatch) {
        distance = takeRarNumber(entry, bits) - kRarShortMatch;
        length = 2;
    } else if (entry.value() == kRepeatLast) {
        distance = history.lastDistance;
        length = history.lastLength;
    } else {
        distance = history.distances[(history.next - (entry.value() - kRepeatLast)) & 3];
        bits.refill();
        length = takeRarNumber(readCode(_repeats, bits), bits);
        if (distance > 256) length += 1 + rarFarBonus(distance);
    }
    history.distances[history.next++ & 3] = history.lastDistance = distance;
    history.lastLength = length;
    window.copy(distance, length);
}

bool Rar20::run(RarBitInputStream& in, RarBufferOutputStream& out) {
    if (_audioMode) return runAudio(in, out);
    const std::uint32_t control = runRarLz(*this, in, out);
    return control == kRarNoSymbol || ReadTables20(in);
}

bool Rar20::runAudio(RarBitInputStream& in, RarBufferOutputStream& out) {
    RarBitCursor bits(in);
    RarWindowCursor window(out);
    bool tables = false;
    if (!bits.ready()) return true;
    while (!tables && bits.ready() && window.ready()) {
        bits.refill();
        const std::uint32_t symbol = DecodeNumber(&_channels[_audio.currentChannel()], bits);
        tables = symbol == kNewAudioTables;
        if (!tables) window.put(_audio.DecodeAudio(symbol));
    }
    bits.sync();
    window.sync();
    return !tables || ReadTables20(in);
}

bool Rar20::step(RarBitInputStream& in, RarBufferOutputStream& out) {
    if (_audioMode) {
        const std::uint32_t symbol = DecodeNumber(&_channels[_audio.currentChannel()], in);
        if (symbol == kNewAudioTables) return ReadTables20(in);
        out.putch(_audio.DecodeAudio(symbol));
        return true;
    }
    const RarMeaning symbol = readCode(_main, in);
    if (symbol.value() < 256) {
        out.putch(static_cast<int>(symbol.value()));
    } else if (isControl(symbol.value())) {
        return ReadTables20(in);
    } else {
        RarCheckedBits bits(in);
        RarCheckedWindow window(out);
        copyMatch(symbol, _history, bits, window);
    }
    return true;
}

}  // namespace ZOV_SPACE
