// RangeCoder: the carryless range decoder of PPM blocks.
#ifndef PAKFOLD_RAR_PPM_RANGECODER_H
#define PAKFOLD_RAR_PPM_RANGECODER_H

#include <cstdint>

#include "rar/RarBitInputStream.h"

namespace ZOV_SPACE {

// Decodes numbers in [0, total) by their probability: first split(), then take() with what the code lies in. All
// bytes are fetched here.
class RangeCoder {
public:
    // The stream is borrowed for as long as the coder decodes. Consumes four bytes.
    void InitDecoder(RarBitInputStream* in);

    // Divides the range into `total` (not 0) equal parts, whose size it returns.
    std::uint32_t split(std::uint32_t total) { return _range / total; }
    // How far behind the range's start the coded number lies.
    std::uint32_t code() const { return _code; }
    void take(std::uint32_t start, std::uint32_t length) {
        _low += start;
        _code -= start;
        _range = length;
    }
    // Reads on until the range is large enough for the next step.
    void normalize() {
        while (isTooNarrow()) {
            _code = _code << 8 | nextByte();
            _low <<= 8;
            _range <<= 8;
        }
    }

private:
    static constexpr std::uint32_t kTop = 1 << 24;
    static constexpr std::uint32_t kBottom = 1 << 15;

    // Whether the start's first byte is settled. A range that shrinks across a change of that byte is cut there.
    bool isTooNarrow() {
        if ((_low ^ (_low + _range)) < kTop) return true;
        if (_range >= kBottom) return false;
        _range = (0 - _low) & (kBottom - 1);
        return true;
    }
    std::uint32_t nextByte() { return _in->nextByte(); }

    std::uint32_t _low = 0;
    std::uint32_t _code = 0;  // Relative to the start.
    std::uint32_t _range = 0;
    RarBitInputStream* _in = nullptr;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_PPM_RANGECODER_H
