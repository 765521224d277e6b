// OutputStreams.h: the sinks that write descriptors, strings and other streams.
//
// Every failure is an IOException. A stream is used by one thread at a time.
#ifndef COMMON_STL_UNUSED_OUTPUTSTREAMS_H
#define COMMON_STL_UNUSED_OUTPUTSTREAMS_H

#include <fcntl.h>

#include <memory>
#include <string>

#include "io/OutputStream.h"
#include "io/OwnFd.h"

namespace ZOV_SPACE {

// Writes a descriptor from its current offset. No operation but the destructor may follow close().
class FileOutputStream : public OutputStream {
public:
    static constexpr int kReplaceFile = O_WRONLY | O_CREAT | O_TRUNC;

    // Opens `path` with these open(2) flags, close-on-exec added; a new file is its owner's alone (0600). The stream
    // owns the descriptor. A failure's text is "<path>: <system error text>".
    explicit FileOutputStream(const char* path, int flags = kReplaceFile);
    // Borrows an open descriptor: neither close() nor the destructor closes it.
    explicit FileOutputStream(int fd);
    ~FileOutputStream() override;

    using OutputStream::write;
    void close() override;
    void flush() override;
    int write(char c) override;
    int write(const char* buf, int len) override;  // Everything or an exception.

private:
    void checkOpen() const;

    bool _closed = false;
    int _fd = -1;
    OwnFd _opened;
};

// Forwards every operation to another stream, which is borrowed and must outlive this one.
class FilterOutputStream : public OutputStream {
public:
    explicit FilterOutputStream(OutputStream* out) : _out(out) {}
    ~FilterOutputStream() override;

    using OutputStream::write;
    void close() override;
    void flush() override;
    int write(char c) override;
    int write(const char* buf, int len) override;

protected:
    OutputStream* _out;
};

// Hands bytes on in blocks: when the next write would not fit, at flush() and at close(), which also closes the inner
// stream. Bytes not flushed when the stream is destroyed are lost, since a destructor could not report a failure.
class BufferedOutputStream : public FilterOutputStream {
public:
    explicit BufferedOutputStream(OutputStream* out, int bufferSize = 8192);
    ~BufferedOutputStream() override;

    using OutputStream::write;
    void close() override;
    void flush() override;
    int write(char c) override;
    int write(const char* buf, int len) override;

private:
    void flushBuffer();
    void checkOpen() const;

    bool _closed = false;
    std::unique_ptr<char[]> _buffer;
    int _bufferSize;
    int _count = 0;  // Bytes waiting.
};

// Collects the bytes written. OutOfMemoryException when they no longer fit in memory.
class StringOutputStream : public OutputStream {
public:
    explicit StringOutputStream(int initialCapacity = 0);
    ~StringOutputStream() override;

    using OutputStream::write;
    void close() override;
    void flush() override;
    int write(char c) override;
    int write(const char* buf, int len) override;

    const std::string& getString() const { return _string; }  // Also after close().

private:
    void checkOpen() const;

    bool _closed = false;
    std::string _string;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_UNUSED_OUTPUTSTREAMS_H
