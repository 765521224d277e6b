// BufferBaseInputStream, BufferBaseOutputStream: a buffer as a byte stream. Each keeps its own position; the buffer is
// borrowed. No operation but the destructor may follow close().
//   Throws:  as the buffer; IOException "Stream is already closed".
//   Threads: one at a time per stream.
#ifndef COMMON_STL_IO_BUFFERBASESTREAMS_H
#define COMMON_STL_IO_BUFFERBASESTREAMS_H

#include <algorithm>

#include "io/BufferBase.h"
#include "io/InputStream.h"
#include "io/OutputStream.h"

namespace ZOV_SPACE {

class BufferBaseInputStream : public InputStream {
public:
    // A negative position counts as 0. reset() goes to `mark` until mark() is called; a negative mark means none.
    explicit BufferBaseInputStream(BufferBase* buffer, long position = 0, long mark = 0)
        : _buffer(buffer), _position(std::max(position, 0L)), _mark(mark) {}
    ~BufferBaseInputStream() override;

    int available() override;
    void close() override;
    int read() override;
    int read(char* buf, int len) override;
    // Moves by `n`, also beyond the end, and returns it; 0 when negative.
    long skip(long n) override;
    bool markSupported() override;
    void mark(int readLimit) override;  // The limit is ignored.
    void reset() override;              // Stays when there is no mark.

private:
    void checkOpen() const;

    bool _closed = false;
    BufferBase* _buffer;
    long _position;
    long _mark;
};

class BufferBaseOutputStream : public OutputStream {
public:
    explicit BufferBaseOutputStream(BufferBase* buffer, long position = 0) : _buffer(buffer), _position(position) {}
    ~BufferBaseOutputStream() override;

    using OutputStream::write;
    void close() override;
    void flush() override;
    int write(char c) override;
    int write(const char* buf, int len) override;

protected:
    // For subclasses that fill the buffer past the stream.
    void advance(long n) { _position += n; }

private:
    void checkOpen() const;

    bool _closed = false;
    BufferBase* _buffer;
    long _position;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_BUFFERBASESTREAMS_H
