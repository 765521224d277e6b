// RarStream.h: the bit reader of RAR's compressed data.
#ifndef PAKFOLD_UTILS_RARSTREAM_H
#define PAKFOLD_UTILS_RARSTREAM_H

#include <array>
#include <cstdint>

#include "io/InputStream.h"

namespace ZOV_SPACE {

// The packed bytes of one entry as bits, most significant first. It overrides none of the stream's operations.
//   Throws:  IOException "Unexpected EOF" or "Unexcepted EOF" when the source ends before the announced total (at the
//            first fill, or later), "RarStream overflow." when bits are asked for beyond it; what the source throws.
class RarBitInputStream : public InputStream {
public:
    static constexpr std::uint32_t kBufferBytes = 8192;

    // Takes at most `total` bytes from the source, which is borrowed; the first of them at once.
    RarBitInputStream(InputStream* source, std::int64_t total);
    ~RarBitInputStream() override;

    // The next 16 bits; they stay. Bits behind the last byte are zero.
    unsigned int getBits();
    // Consumes n bits: 0; or 1, and nothing is consumed, when n is negative or above 16.
    int addBits(int n);

private:
    void fill(const char* eofText);

    static constexpr std::uint32_t kSpare = 8;  // Zero bytes behind the valid ones, for reads across the end.

    InputStream* _source;
    std::int64_t _total;
    std::int64_t _base = 0;  // Source bytes before the buffer's first.
    std::uint32_t _valid = 0;
    std::uint32_t _position = 0;  // Of the current byte, in the buffer.
    std::uint32_t _bit = 0;       // Bits consumed of it.
    std::array<unsigned char, kBufferBytes + kSpare> _buffer{};
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_UTILS_RARSTREAM_H
