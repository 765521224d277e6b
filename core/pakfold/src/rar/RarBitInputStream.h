// RarBitInputStream: the packed bytes of one entry as bits, most significant first.
//
// Every failure is an IOException; what the source throws passes through. Used by one thread at a time.
#ifndef PAKFOLD_RAR_RARBITINPUTSTREAM_H
#define PAKFOLD_RAR_RARBITINPUTSTREAM_H

#include <array>
#include <cstdint>

#include "io/InputStream.h"

namespace ZOV_SPACE {

// It overrides none of the stream's operations.
//   Throws:  "Unexpected EOF" or "Unexcepted EOF" when bits are asked for that the source, which ended before the
//            announced total (at the first fill, or later), did not have, "RarStream overflow." when they lie beyond
//            the total.
class RarBitInputStream : public InputStream {
public:
    static constexpr std::uint32_t kBufferBytes = 8192;

    // Takes at most `total` bytes from the source, which is borrowed; the first of them at once.
    RarBitInputStream(InputStream* source, std::int64_t total);
    ~RarBitInputStream() override;

    // The next 16 bits; they stay. Bits behind the last byte are zero.
    unsigned int getBits() {
        if (_position >= _checkAt) prepare();
        const unsigned char* const next = _buffer.data() + _position;
        const std::uint32_t bits = std::uint32_t{next[0]} << 16 | std::uint32_t{next[1]} << 8 | next[2];
        return (bits >> (8 - _bit)) & 0xFFFF;
    }
    // Consumes n bits: 0; or 1, and nothing is consumed, when n is negative or above 16.
    int addBits(int n) {
        if (n < 0 || n > 16) return 1;
        _bit += static_cast<std::uint32_t>(n);
        _position += _bit / 8;
        _bit %= 8;
        return 0;
    }
    // The next n bits, at most 16, which are consumed.
    unsigned int readBits(int n) {
        const unsigned int bits = getBits() >> (16 - n);
        addBits(n);
        return bits;
    }
    // Passes over what is left of a byte begun.
    void alignToByte() { addBits(static_cast<int>((8 - _bit) % 8)); }
    // Consumes 8 bits.
    unsigned int nextByte() {
        if (_bit == 0 && _position < _checkAt) return _buffer[_position++];
        const unsigned int byte = getBits() >> 8;
        ++_position;
        return byte;
    }

    std::int64_t consumed() const { return _base + _position; }  // Whole bytes.
    bool atEnd() const { return consumed() >= _total; }
    std::int64_t left() const { return _total - consumed(); }  // Bytes, one begun included.
    // Bytes of the total that were never taken from the source.
    std::int64_t untaken() const { return _total - _base - _valid; }

private:
    friend class RarBitCursor;

    static constexpr std::uint32_t kSpare = 8;  // Zero bytes behind the valid ones, for reads across the end.

    void prepare();
    void fill(const char* eofText);

    InputStream* _source;
    std::int64_t _total;
    std::int64_t _base = 0;  // Source bytes before the buffer's first.
    std::uint32_t _valid = 0;
    std::uint32_t _position = 0;     // Of the current byte, in the buffer.
    std::uint32_t _bit = 0;          // Bits consumed of it.
    const char* _eofText = nullptr;  // What to throw behind the valid bytes, when the source has no more.
    std::uint32_t _checkAt = 0;      // Before this position there is neither a refill due nor the end.
    std::array<unsigned char, kBufferBytes + kSpare> _buffer;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_RARBITINPUTSTREAM_H
