// RarWindowCursor: the inner loop's view of a RAR decoder's window. The cursor keeps positions in registers and leaves
// out every check that its stream makes, which holds as long as ready() is true where a symbol begins. What is done
// through it has the same result as the stream's own operations.
#ifndef PAKFOLD_RAR_LZ_RARWINDOWCURSOR_H
#define PAKFOLD_RAR_LZ_RARWINDOWCURSOR_H

#include <algorithm>
#include <cstdint>

#include "rar/RarBufferOutputStream.h"
#include "rar/RarCopy.h"

namespace ZOV_SPACE {

// Puts bytes into the stream's window. The stream learns of it by sync(); until then it stands where it was.
class RarWindowCursor {
public:
    // The longest match that may be copied, and the literals that may be put, between two calls of ready().
    static constexpr std::uint32_t kLongestMatch = 260;
    static constexpr std::uint32_t kMostLiterals = 3;

    // With `limit`, ready() holds only while fewer bytes than the stream's limit are written and pending.
    explicit RarWindowCursor(RarBufferOutputStream& out)
        : _out(out), _bytes(out._bytes), _ringSize(out.ringSize()), _write(out._write) {
        constexpr std::uint32_t kReserve = RarBufferOutputStream::kMargin + 2 * kLongestMatch;
        const std::int64_t pending = out.pending();
        const std::int64_t untilFlush = std::int64_t{out.windowSize()} - kReserve - pending;
        const std::int64_t untilWrap = std::int64_t{_ringSize} - kReserve - _write;
        const std::int64_t untilLimit = out._limit - out._flushedTotal - pending - kMostLiterals;
        const std::int64_t room = std::min({untilFlush, untilWrap, untilLimit});
        _readyEnd = _write + static_cast<std::uint32_t>(std::max<std::int64_t>(room, 0));
    }

    // Whether a symbol may be written: neither a flush is due nor the limit reached, and the window's end is away.
    bool ready() const { return _write < _readyEnd; }
    void put(unsigned int byte) { _bytes[_write++] = static_cast<unsigned char>(byte); }
    // REQUIRES: distance is at most the window's size.
    [[gnu::always_inline]] void copy(std::uint32_t distance, std::uint32_t length) {
        const std::uint32_t from = _write - distance + (distance > _write ? _ringSize : 0);
        if (distance >= kRarFarCopy && length <= _ringSize - from) [[likely]] {
            rarCopyFar(_bytes + _write, _bytes + from, length);
            _write += length;
        } else if (distance - 1 < std::min(_write, kRarFarCopy - 1)) {
            rarRepeatNear(_bytes + _write, distance, length);
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
    std::uint32_t _ringSize;
    std::uint32_t _write;  // In the ring.
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

#endif  // PAKFOLD_RAR_LZ_RARWINDOWCURSOR_H
