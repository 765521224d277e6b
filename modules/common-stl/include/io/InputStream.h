// InputStream: an abstract byte source, and the sources that read descriptors and other streams.
//
// Every failure is an IOException. A stream is used by one thread at a time.
#ifndef COMMON_STL_IO_INPUTSTREAM_H
#define COMMON_STL_IO_INPUTSTREAM_H

#include <sys/types.h>

#include "CPObject.h"
#include "io/OwnFd.h"

namespace ZOV_SPACE {

// The order of the virtual operations is part of the framework's contract: destructor, toString, then as declared here.
// Add new ones at the end only. What a subclass does not override throws "Unimplemented", except where said.
class InputStream : public CPObject {
public:
    InputStream() = default;
    InputStream(const InputStream&) = delete;
    InputStream& operator=(const InputStream&) = delete;
    ~InputStream() override;

    virtual int available();  // Bytes that can be read without waiting, as far as the stream knows.
    virtual void close();
    virtual int read();  // The next byte as 0..255, -1 at the end.
    // Copies up to `len` bytes. Returns the number copied, which may be smaller than asked for; 0 at the end.
    // Default: byte by byte through read().
    virtual int read(char* buf, int len);
    // Moves forward. Returns the number of bytes skipped, 0 when `n` is not positive. Default: reads and forgets, in
    // pieces of 512 bytes.
    virtual long skip(long n);
    virtual bool markSupported();      // Default: false.
    virtual void mark(int readLimit);  // Remembers the position. Default: nothing.
    virtual void reset();              // Returns to the remembered position. Default: nothing.
};

// Reads a descriptor from its current offset. No operation but the destructor may follow close().
class FileInputStream : public InputStream {
public:
    // Opens `path`; the stream owns the descriptor. A failure's text is "<path>: <system error text>".
    explicit FileInputStream(const char* path);
    // Borrows an open descriptor: neither close() nor the destructor closes it.
    explicit FileInputStream(int fd);
    ~FileInputStream() override;

    int available() override;
    void close() override;
    int read() override;
    int read(char* buf, int len) override;
    long skip(long n) override;
    bool markSupported() override;      // False for character devices, FIFOs and sockets.
    void mark(int readLimit) override;  // The limit is ignored.
    void reset() override;

private:
    bool _closed = false;
    int _fd = -1;
    off_t _mark = -1;  // -1: none set.
    OwnFd _opened;
};

// Forwards every operation to another stream, which is borrowed and must outlive this one.
class FilterInputStream : public InputStream {
public:
    explicit FilterInputStream(InputStream* in) : _in(in) {}
    ~FilterInputStream() override;

    int available() override;
    void close() override;
    int read() override;
    int read(char* buf, int len) override;
    long skip(long n) override;
    bool markSupported() override;
    void mark(int readLimit) override;
    void reset() override;

protected:
    InputStream* _in;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_INPUTSTREAM_H
