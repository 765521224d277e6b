// Rar20.h: the RAR 2.0 method: LZ77 with prefix codes, and the multimedia mode.
#ifndef PAKFOLD_RAR_LZ_RAR20_H
#define PAKFOLD_RAR_LZ_RAR20_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "rar/lz/RarAudio.h"
#include "rar/lz/RarLz.h"

namespace ZOV_SPACE {

// One chain of solid entries.
class Rar20 {
public:
    explicit Rar20(RarHistory& history) : _history(history) {}

    void reset();  // For an entry that continues none; its tables must be read then.
    bool ReadTables20(RarBitInputStream& in);
    // Tables may follow the last symbol of an entry; the next one needs them.
    void ReadLastTables(RarBitInputStream& in);

    // Decodes as far as no check is due, which may be nothing. False when tables could not be read.
    bool run(RarBitInputStream& in, RarBufferOutputStream& out);
    // Decodes one symbol. False when tables could not be read.
    bool step(RarBitInputStream& in, RarBufferOutputStream& out);

    // For runRarLz().
    const auto& main() const { return _main; }
    RarHistory& history() { return _history; }
    static bool isControl(std::uint32_t symbol) { return symbol == kNewTables; }
    template <class Bits, class Window>
    void copyMatch(RarMeaning entry, RarHistory& history, Bits& bits, Window& window) const;

private:
    static constexpr std::uint32_t kRepeatLast = 256, kNewTables = 269;
    static constexpr std::size_t kMainSymbols = 298, kDistanceSymbols = 48, kAudioSymbols = 257;
    static constexpr std::uint32_t kNewAudioTables = 256;

    bool readLengths(RarBitInputStream& in, std::size_t count);
    bool runAudio(RarBitInputStream& in, RarBufferOutputStream& out);

    RarHistory& _history;
    bool _audioMode = false;
    RarAudio _audio;
    std::array<unsigned char, kAudioSymbols * RarAudio::kMostChannels> _lengths{};
    Decode<11> _main;
    Decode<9> _distances;
    Decode<8> _repeats;
    std::array<Decode<10>, RarAudio::kMostChannels> _channels;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_LZ_RAR20_H
