// BufferedInputStream: another stream read in blocks, with a mark and line by line.
#ifndef COMMON_STL_UNUSED_BUFFEREDINPUTSTREAM_H
#define COMMON_STL_UNUSED_BUFFEREDINPUTSTREAM_H

#include <memory>
#include <string>

#include "io/InputStream.h"

namespace ZOV_SPACE {

// Reads another stream in blocks. No operation but the destructor may follow close(), which also closes the inner
// stream. OutOfMemoryException when the block cannot be allocated or grown.
class BufferedInputStream : public FilterInputStream {
public:
    explicit BufferedInputStream(InputStream* in, int bufferSize = 8192);
    ~BufferedInputStream() override;

    int available() override;
    void close() override;
    int read() override;
    int read(char* buf, int len) override;
    long skip(long n) override;
    bool markSupported() override;
    // The mark holds for at least `readLimit` further bytes, for which the block grows if it must.
    void mark(int readLimit) override;
    void reset() override;

    // Replaces `line` by the bytes up to the next "\n", which is consumed and, like a "\r" before it, left out. The
    // last line may end with the stream instead. False, and an empty line, when the stream had already ended.
    bool readLine(std::string& line);

private:
    void fillBuffer();
    void growBuffer();
    void checkOpen() const;

    bool _closed = false;
    std::unique_ptr<char[]> _buffer;
    int _bufferSize;
    int _markLimit;
    int _count = 0;     // Valid bytes in the block.
    int _position = 0;  // Of the next byte, in the block.
    int _mark = -1;     // In the block; -1: none set.
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_UNUSED_BUFFEREDINPUTSTREAM_H
