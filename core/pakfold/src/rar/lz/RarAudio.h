// RarAudio.h: the multimedia mode of RAR 2.0: bytes of up to four interleaved channels, each predicted from those
// before it.
#ifndef PAKFOLD_RAR_LZ_RARAUDIO_H
#define PAKFOLD_RAR_LZ_RARAUDIO_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace ZOV_SPACE {

class RarAudio {
public:
    static constexpr std::size_t kMostChannels = 4;

    void reset() { *this = RarAudio(); }
    // REQUIRES: 1 <= count <= kMostChannels.
    void setChannels(std::size_t count);
    std::size_t channels() const { return _channels; }
    std::size_t currentChannel() const { return _current; }
    // The byte that the coded difference stands for in the current channel; the next channel becomes current.
    unsigned char DecodeAudio(std::uint32_t delta);

private:
    static constexpr std::size_t kWeights = 5;

    struct Channel {
        std::array<int, kWeights> weights{};
        std::array<int, 4> deltas{};  // Of the channel's own bytes: last, and its changes.
        int lastDelta = 0;
        std::array<std::uint32_t, 2 * kWeights + 1> errors{};  // As is, and with each weight a step lower or higher.
        std::uint32_t count = 0;
        int lastByte = 0;
    };

    void adapt(Channel& channel);

    std::array<Channel, kMostChannels> _state{};
    std::size_t _channels = 1;
    std::size_t _current = 0;
    int _channelDelta = 0;  // Of the byte before, whatever its channel.
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_LZ_RARAUDIO_H
