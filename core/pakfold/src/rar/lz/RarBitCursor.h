// RarBitCursor: the inner loop's view of a RAR decoder's input. The cursor keeps positions in registers and leaves out
// every check that its stream makes, which holds as long as ready() is true where a symbol begins. What is done through
// it has the same result as the stream's own operations.
#ifndef PAKFOLD_RAR_LZ_RARBITCURSOR_H
#define PAKFOLD_RAR_LZ_RARBITCURSOR_H

#include <algorithm>
#include <cstdint>

#include "ByteOrder.h"
#include "rar/RarBitInputStream.h"

namespace ZOV_SPACE {

// Takes bits out of the stream's buffer. The stream learns of it by sync(); until then it stands where it was.
class RarBitCursor {
public:
    explicit RarBitCursor(RarBitInputStream& in)
        : _in(in),
          _next(in._buffer.data() + std::min(in._position, in._valid)),
          _readyEnd(in._buffer.data() + in._valid) {
        if (!ready()) return;
        refill();
        addBits(static_cast<int>(in._bit));
    }

    // Whether two refills may follow.
    bool ready() const { return _readyEnd - _next >= 16; }
    // Afterwards at least 56 bits are there.
    void refill() {
        _bits |= __builtin_bswap64(loadU64(_next)) >> _count;
        _next += (63 - _count) >> 3;
        _count |= 56;
    }
    unsigned int getBits() const { return static_cast<unsigned int>(_bits >> 48); }
    // REQUIRES: n <= 16, and not more than are there.
    void addBits(int n) {
        _bits <<= n;
        _count -= n;
    }
    // Takes a number of n bits, 0 to 16. Without a branch, because how often there are none is anyone's guess.
    std::uint32_t takeNumber(int n) {
        const auto first = static_cast<std::uint32_t>(_bits >> 33);
        addBits(n);
        return first >> (31 - n);
    }
    void sync() {
        const auto consumed = (_next - _in._buffer.data()) * 8 - _count;
        _in._position = static_cast<std::uint32_t>(consumed / 8);
        _in._bit = static_cast<std::uint32_t>(consumed % 8);
    }

private:
    RarBitInputStream& _in;
    const unsigned char* _next;
    const unsigned char* _readyEnd;
    std::uint64_t _bits = 0;  // Left-aligned. Behind those that count, more bits of the stream may stand.
    int _count = 0;
};

// The same operations with every check, for where a cursor is not ready.
class RarCheckedBits {
public:
    explicit RarCheckedBits(RarBitInputStream& in) : _in(in) {}
    void refill() const {}
    unsigned int getBits() const { return _in.getBits(); }
    void addBits(int n) const { _in.addBits(n); }
    std::uint32_t takeNumber(int n) const { return n == 0 ? 0 : _in.readBits(n); }

private:
    RarBitInputStream& _in;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_LZ_RARBITCURSOR_H
