// Each byte is coded as the difference from a prediction: the channel's last byte, plus the weighted sum of its last
// changes and of the change in the channel before. For every input the sum of errors is kept that one weight more or
// less would have made; every 32 bytes the best of these changes is made (adaptation by the sign of the error).
#include "rar/lz/RarAudio.h"

#include <algorithm>
#include <cstdlib>

namespace ZOV_SPACE {
namespace {

constexpr std::uint32_t kAdaptEvery = 32;  // Bytes of a channel.
constexpr int kLowestWeight = -17, kHighestWeight = 16;

// The lowest eight bits as a number of two's complement.
constexpr int asSignedByte(int value) { return ((value + 0x80) & 0xFF) - 0x80; }

}  // namespace

void RarAudio::setChannels(std::size_t count) {
    _channels = count;
    if (_current >= count) _current = 0;
}

unsigned char RarAudio::DecodeAudio(std::uint32_t delta) {
    Channel& channel = _state[_current];
    auto& [d1, d2, d3, d4] = channel.deltas;
    d4 = d3;
    d3 = d2;
    d2 = channel.lastDelta - d1;
    d1 = channel.lastDelta;
    const std::array<int, kWeights> inputs{d1, d2, d3, d4, _channelDelta};

    int predicted = 8 * channel.lastByte;
    for (std::size_t i = 0; i < kWeights; ++i) predicted += channel.weights[i] * inputs[i];
    const int byte = (((predicted >> 3) & 0xFF) - static_cast<int>(delta)) & 0xFF;

    const int error = asSignedByte(static_cast<int>(delta)) * 8;
    channel.errors[0] += static_cast<std::uint32_t>(std::abs(error));
    for (std::size_t i = 0; i < kWeights; ++i) {
        channel.errors[2 * i + 1] += static_cast<std::uint32_t>(std::abs(error - inputs[i]));
        channel.errors[2 * i + 2] += static_cast<std::uint32_t>(std::abs(error + inputs[i]));
    }
    _channelDelta = channel.lastDelta = asSignedByte(byte - channel.lastByte);
    channel.lastByte = byte;
    if (++channel.count % kAdaptEvery == 0) adapt(channel);
    if (++_current == _channels) _current = 0;
    return static_cast<unsigned char>(byte);
}

// Moves one weight a step towards what would have predicted best.
void RarAudio::adapt(Channel& channel) {
    const auto best = std::min_element(channel.errors.begin(), channel.errors.end()) - channel.errors.begin();
    channel.errors.fill(0);
    if (best == 0) return;
    int& weight = channel.weights[static_cast<std::size_t>(best - 1) / 2];
    weight = std::clamp(weight + (best % 2 == 0 ? 1 : -1), kLowestWeight, kHighestWeight);
}

}  // namespace ZOV_SPACE
