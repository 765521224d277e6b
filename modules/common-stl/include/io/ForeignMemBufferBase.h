// ForeignMemBufferBase: bytes in somebody else's memory as a buffer, without a copy. They can be read, never changed:
// every operation that would change them throws IOException "Read-only BufferBase".
//   Borrows: the bytes, which stay as they are while the buffer lives.
//   Threads: any number; there is nothing to guard.
#ifndef COMMON_STL_IO_FOREIGNMEMBUFFERBASE_H
#define COMMON_STL_IO_FOREIGNMEMBUFFERBASE_H

#include <span>

#include "io/BufferBase.h"

namespace ZOV_SPACE {

class ForeignMemBufferBase : public BufferBase {
public:
    // REQUIRES: not more bytes than the largest long.
    explicit ForeignMemBufferBase(std::span<const char> bytes) : _bytes(bytes) {
        _setSize(static_cast<long>(bytes.size()));
    }
    ~ForeignMemBufferBase() override;

    int read(long pos) override;
    int read(long pos, char* buf, int n) override;
    std::span<const char> view(long pos) override;

    int write(long pos, char c) override;
    int write(long pos, const char* buf, int n) override;
    int insert(long pos, char c) override;
    int insert(long pos, const char* buf, int n) override;
    int cut(long pos) override;
    int cut(long pos, int n) override;
    int append(char c) override;
    int append(const char* buf, int n) override;
    int truncate(long len) override;

private:
    std::span<const char> _bytes;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_FOREIGNMEMBUFFERBASE_H
