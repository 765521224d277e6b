// RarStream.h: both ends of the decoding of RAR's compressed data: the bit reader of the packed bytes and the window
// that collects what is unpacked.
//
// Every failure is an IOException; what a source or target throws passes through. Streams belong to one thread at a
// time.
#ifndef PAKFOLD_RAR_RARSTREAM_H
#define PAKFOLD_RAR_RARSTREAM_H

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "io/InputStream.h"
#include "io/MallocBytes.h"
#include "io/OutputStream.h"

namespace ZOV_SPACE {

// The packed bytes of one entry as bits, most significant first. It overrides none of the stream's operations.
//   Throws:  "Unexpected EOF" or "Unexcepted EOF" when the source ends before the announced total (at the first fill,
//            or later), "RarStream overflow." when bits are asked for beyond it.
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
    std::uint32_t _position = 0;  // Of the current byte, in the buffer.
    std::uint32_t _bit = 0;       // Bits consumed of it.
    std::uint32_t _checkAt = 0;   // Before this position there is neither a refill due nor the end.
    std::array<unsigned char, kBufferBytes + kSpare> _buffer;
};

// Memory for a dictionary: a ring of bytes that are zero until they are written. Since clearing costs by what was
// written, one window serves a walk over many small entries.
class RarWindow {
public:
    RarWindow() = default;
    explicit RarWindow(std::uint32_t size);  // Throws OutOfMemoryException "Out of memory".

    unsigned char* bytes() const { return reinterpret_cast<unsigned char*>(_bytes.get()); }
    std::uint32_t size() const { return _size; }
    // Says that nothing at or behind `end` was written, beyond what was said before.
    void wroteTo(std::uint32_t end) { _reach = end > _reach ? end : _reach; }
    void clear();

private:
    MallocBytes _bytes;
    std::uint32_t _size = 0;
    std::uint32_t _reach = 0;
};

// Where unpacked bytes go: a ring window, which serves back-references until its bytes are overwritten, and from there
// to a target, of which at most `limit` bytes are written. A write that would cross the limit throws "Rar output
// buffer overrun", and nothing of it goes out.
//
// The order of the virtual operations (the inherited ones, then as declared) is part of the framework's contract.
class RarBufferOutputStream : public OutputStream {
public:
    // Bytes that the window keeps free between two checks whether it must be flushed.
    static constexpr std::uint32_t kMargin = 270;
    static constexpr std::int64_t kLargestWindow = std::int64_t{1} << 30;

    // With `previous`, whose entry this one continues, its window is taken over as it stands and `previous` must not be
    // written to any more; what it had not flushed counts as flushed. Throws OutOfMemoryException "Out of memory".
    // REQUIRES: kMargin <= windowSize <= kLargestWindow, unless there is a previous stream.
    RarBufferOutputStream(OutputStream* target, std::int64_t windowSize, std::int64_t limit,
                          RarBufferOutputStream* previous);
    // Starts afresh in a window that is clear.
    RarBufferOutputStream(OutputStream* target, RarWindow window, std::int64_t limit);
    ~RarBufferOutputStream() override;

    virtual void flashOutput(int max);  // Writes at most `max` of the pending bytes.
    virtual void flashOutput();         // Writes what is pending, as far as it is final.
    virtual void finishOutput();        // Writes everything that is pending.
    virtual bool limitReached();        // Whether what was written and is pending fills the limit.

    void putch(int c) {
        autoFlash();
        _bytes[_write] = static_cast<unsigned char>(c);
        advance(1);
    }
    // Repeats `length` bytes that begin `distance` before the write position; they may reach into what is being
    // written. Distance 0 is the byte at the write position. A distance beyond the window throws "copyContent()
    // overflow".
    void copyContent(unsigned int distance, unsigned int length);
    // Calls flashOutput() when the window has no more than kMargin bytes free.
    void autoFlash() {
        if (std::int64_t{pending()} >= std::int64_t{_window.size()} - kMargin) flashOutput();
    }

    std::uint32_t windowSize() const { return _window.size(); }
    std::uint32_t writePosition() const { return _write; }                 // In the window.
    std::int64_t writeCount() const { return _flushedCount + pending(); }  // Bytes put into the window.
    std::int64_t flushedCount() const { return _flushedCount; }            // Of them, flushed or replaced.
    std::int64_t flushedTotal() const { return _flushedTotal; }            // Bytes written to the target.
    // Gives up the window, for another stream; this one must not be written to any more.
    RarWindow releaseWindow();

protected:
    std::uint32_t pending() const { return _write - _flushed + (_write < _flushed ? _window.size() : 0); }
    // Throws when n more bytes would cross the limit.
    void checkLimit(std::int64_t n) const;
    void writeToTarget(const unsigned char* bytes, std::uint32_t n);
    // Writes the next n pending bytes as they are. REQUIRES: n <= pending().
    void flushPlain(std::uint32_t n);
    // Passes over the next n pending bytes.
    void passFlushed(std::uint32_t n);
    const unsigned char* window() const { return _bytes; }
    std::uint32_t flushedPosition() const { return _flushed; }

private:
    friend class RarWindowCursor;

    void advance(std::uint32_t n) {
        _write += n;
        if (_write >= _window.size()) wrap();
    }
    void wrap();
    void copyPiece(std::uint32_t distance, std::uint32_t length);

    OutputStream* _target;
    std::int64_t _limit;
    RarWindow _window;
    unsigned char* _bytes;
    std::uint32_t _flushed = 0;  // Window position of the first byte not flushed.
    std::uint32_t _write = 0;    // Window position of the next byte.
    std::int64_t _flushedCount = 0;
    std::int64_t _flushedTotal = 0;
};

class RarVMOutputStream;
class RarOutputFilter;

// A filter that waits for its block of the output.
struct RarQueuedFilter {
    std::int64_t start;  // Of the block, as a count of bytes put into the window.
    std::unique_ptr<RarOutputFilter> filter;
};

using RarFilterQueue = std::vector<RarQueuedFilter>;

// Replaces a block of the output by something else. The order of the virtual operations is part of the binary
// interface.
class RarOutputFilter {
public:
    RarOutputFilter() = default;
    RarOutputFilter(const RarOutputFilter&) = delete;
    RarOutputFilter& operator=(const RarOutputFilter&) = delete;
    virtual ~RarOutputFilter();

    virtual std::uint32_t getStart() const = 0;   // Window position where the block begins.
    virtual std::uint32_t getLength() const = 0;  // Of the block.
    // Takes the next bytes of the block, at most n, and returns how many it has then.
    virtual std::uint32_t copy(const unsigned char* bytes, std::uint32_t n) = 0;
    virtual bool ready() const = 0;  // Whether the block is complete.
    // Runs on the block, hands the result to the filters at the queue's front that want it, which leave the queue, and
    // writes what comes out through the stream.
    virtual void execute(RarVMOutputStream* out, RarFilterQueue* queue) = 0;
};

// The window with filters: plain bytes are flushed up to the block of the first filter, which waits until its block is
// complete.
class RarVMOutputStream : public RarBufferOutputStream {
public:
    static constexpr std::size_t kMostPending = 1024;
    static constexpr std::size_t kMostOnOneBlock = 8;

    RarVMOutputStream(OutputStream* target, std::int64_t windowSize, std::int64_t limit,
                      RarBufferOutputStream* previous);
    RarVMOutputStream(OutputStream* target, RarWindow window, std::int64_t limit);
    ~RarVMOutputStream() override;

    using RarBufferOutputStream::flashOutput;
    void flashOutput() override;
    void finishOutput() override;
    bool limitReached() override;

    // Queues a filter whose block begins at or after the write position. False, and the filter is dropped, when
    // kMostPending filters wait, or kMostOnOneBlock at the same start, or the block would not fit in the window.
    bool registerFilter(std::unique_ptr<RarOutputFilter> filter);
    // Forgets the filters that wait; their blocks become plain bytes.
    void dropFilters() { _filters.clear(); }
    // For filters: writes the result for the block at the front.
    void writeFiltered(const unsigned char* bytes, std::uint32_t n) { writeToTarget(bytes, n); }

private:
    bool flushToFirstFilter();
    void runFirstFilter();

    RarFilterQueue _filters;  // By start, and by registration where starts are equal.
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_RARSTREAM_H
