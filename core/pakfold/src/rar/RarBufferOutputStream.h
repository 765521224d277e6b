// RarBufferOutputStream: the window that collects what is unpacked.
//
// Every failure is an IOException; what the target throws passes through. Used by one thread at a time.
#ifndef PAKFOLD_RAR_RARBUFFEROUTPUTSTREAM_H
#define PAKFOLD_RAR_RARBUFFEROUTPUTSTREAM_H

#include <cstdint>

#include "io/OutputStream.h"
#include "rar/RarWindow.h"

namespace ZOV_SPACE {

// Where unpacked bytes go: a ring window, which serves back-references until its bytes are overwritten, and from there
// to a target, of which at most `limit` bytes are written. Of a write that would cross the limit only what fits goes
// out; then it throws "Rar output buffer overrun". What the target takes is charged to the scan's budget.
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
    // In a window without the bytes that its ring has more.
    std::uint32_t writePosition() const { return (_write + _turned) % _window.size(); }
    std::int64_t writeCount() const { return _flushedCount + pending(); }  // Bytes put into the window.
    std::int64_t flushedCount() const { return _flushedCount; }            // Of them, flushed or replaced.
    std::int64_t flushedTotal() const { return _flushedTotal; }            // Bytes written to the target.
    // Whether a write has failed, for the limit, the budget or the target. Nothing should be flushed any more.
    bool outputFailed() const { return _outputFailed; }
    // Gives up the window, for another stream; this one must not be written to any more.
    RarWindow releaseWindow();

protected:
    std::uint32_t pending() const { return _write - _flushed + (_write < _flushed ? _window.ringSize() : 0); }
    void writeToTarget(const unsigned char* bytes, std::uint32_t n);
    // Writes the next n pending bytes as they are. REQUIRES: n <= pending().
    void flushPlain(std::uint32_t n);
    // Passes over the next n pending bytes.
    void passFlushed(std::uint32_t n);
    const unsigned char* window() const { return _bytes; }
    std::uint32_t flushedPosition() const { return _flushed; }
    std::uint32_t ringSize() const { return _window.ringSize(); }

private:
    friend class RarWindowCursor;

    void advance(std::uint32_t n) {
        _write += n;
        if (_write >= _window.ringSize()) wrap();
    }
    void wrap();
    void copyPiece(std::uint32_t distance, std::uint32_t length);

    OutputStream* _target;
    std::int64_t _limit;
    RarWindow _window;
    unsigned char* _bytes;
    std::uint32_t _flushed = 0;  // Position in the ring of the first byte not flushed.
    std::uint32_t _write = 0;    // Position in the ring of the next byte.
    std::uint32_t _turned = 0;   // Which position of a dictionary the ring begins with by now.
    std::int64_t _flushedCount = 0;
    std::int64_t _flushedTotal = 0;
    bool _outputFailed = false;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_RARBUFFEROUTPUTSTREAM_H
