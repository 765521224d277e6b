// RarCursor.h: the inner loop's view of both ends of a RAR decoder. The cursors keep positions in registers and leave
// out every check that their streams make, which holds as long as ready() is true where a symbol begins. What is done
// through them has the same result as the streams' own operations.
#ifndef PAKFOLD_RAR_LZ_RARCURSOR_H
#define PAKFOLD_RAR_LZ_RARCURSOR_H

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>

#include "ByteOrder.h"
#include "rar/RarStream.h"

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

private:
    RarBitInputStream& _in;
};

// Copies of at least 16 bytes' distance, in either direction. They copy at most 16 bytes at a time and never a byte
// beyond the end: what stands there is still part of the dictionary.
constexpr std::uint32_t kRarFarCopy = 16;

// Copies where source and target are at least kRarFarCopy bytes apart. They may overlap, and what is copied then is
// copied on.
[[gnu::always_inline]] inline void rarCopyFar(unsigned char* to, const unsigned char* from, std::uint32_t length) {
    const auto copy = [&]<class Unit>(std::uint32_t at, Unit unit) {
        std::memcpy(&unit, from + at, sizeof unit);
        std::memcpy(to + at, &unit, sizeof unit);
    };
    struct Bytes16 {
        std::uint64_t words[2];
    };
    if (length >= 16) {
        const std::uint32_t last = length - 16;
        for (std::uint32_t at = 0; at < last; at += 16) copy(at, Bytes16{});
        copy(last, Bytes16{});
    } else if (length >= 8) {
        copy(0, std::uint64_t{});
        copy(length - 8, std::uint64_t{});
    } else if (length >= 4) {
        copy(0, std::uint32_t{});
        copy(length - 4, std::uint32_t{});
    } else {
        for (std::uint32_t i = 0; i < length; ++i) to[i] = from[i];
    }
}

// Repeats the `distance` bytes before the target. REQUIRES: 0 < distance < kRarFarCopy.
void rarRepeatNear(unsigned char* to, std::uint32_t distance, std::uint32_t length);

// Puts bytes into the stream's window. The stream learns of it by sync(); until then it stands where it was.
class RarWindowCursor {
public:
    // The longest match that may be copied, and the literals that may be put, between two calls of ready().
    static constexpr std::uint32_t kLongestMatch = 260;
    static constexpr std::uint32_t kMostLiterals = 2;

    // With `limit`, ready() holds only while fewer bytes than the stream's limit are written and pending.
    explicit RarWindowCursor(RarBufferOutputStream& out)
        : _out(out),
          _bytes(out._bytes),
          _size(out.windowSize()),
          _farthest(_size - std::min(_size, kRarFarCopy)),
          _write(out._write) {
        constexpr std::uint32_t kReserve = RarBufferOutputStream::kMargin + 2 * kLongestMatch;
        const std::int64_t pending = out.pending();
        const std::int64_t untilFlush = std::int64_t{out.windowSize()} - kReserve - pending;
        const std::int64_t untilWrap = std::int64_t{out.windowSize()} - kReserve - _write;
        const std::int64_t untilLimit = out._limit - out._flushedTotal - pending - kMostLiterals;
        const std::int64_t room = std::min({untilFlush, untilWrap, untilLimit});
        _readyEnd = _write + static_cast<std::uint32_t>(std::max<std::int64_t>(room, 0));
    }

    // Whether a symbol may be written: neither a flush is due nor the limit reached, and the window's end is away.
    bool ready() const { return _write < _readyEnd; }
    void put(unsigned int byte) { _bytes[_write++] = static_cast<unsigned char>(byte); }
    // REQUIRES: distance is at most the window's size.
    [[gnu::always_inline]] void copy(std::uint32_t distance, std::uint32_t length) {
        const std::uint32_t from = _write - distance + (distance > _write ? _size : 0);
        if (distance >= kRarFarCopy && distance <= _farthest && length <= _size - from) [[likely]] {
            rarCopyFar(_bytes + _write, _bytes + from, length);
            _write += length;
        } else {
            _write = copySlowly(_out, _write, distance, length);
        }
    }
    void sync() { _out._write = _write; }

private:
    // Static, so that the cursor's address is taken nowhere and its members stay in registers.
    static std::uint32_t copySlowly(RarBufferOutputStream& out, std::uint32_t write, std::uint32_t distance,
                                    std::uint32_t length) {
        out._write = write;
        out.copyContent(distance, length);
        return out._write;
    }

    RarBufferOutputStream& _out;
    unsigned char* _bytes;
    std::uint32_t _size;
    std::uint32_t _farthest;  // The largest distance that leaves kRarFarCopy bytes to the source, the other way round.
    std::uint32_t _write;     // In the window.
    std::uint32_t _readyEnd;
};

// The same operations with every check, for where a cursor is not ready.
class RarCheckedWindow {
public:
    explicit RarCheckedWindow(RarBufferOutputStream& out) : _out(out) {}
    void put(unsigned int byte) const { _out.putch(static_cast<int>(byte)); }
    void copy(std::uint32_t distance, std::uint32_t length) const { _out.copyContent(distance, length); }

private:
    RarBufferOutputStream& _out;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_LZ_RARCURSOR_H
