// ForeignMemBufferBase: bytes in somebody else's memory as a buffer, without a copy.
//   Borrows: the bytes, which stay as they are while the buffer lives.
//   Threads: any number; there is nothing to guard.
#ifndef COMMON_STL_IO_FOREIGNMEMBUFFERBASE_H
#define COMMON_STL_IO_FOREIGNMEMBUFFERBASE_H

#include <span>

#include "io/ReadOnlyBufferBase.h"

namespace ZOV_SPACE {

class ForeignMemBufferBase : public ReadOnlyBufferBase {
public:
    // REQUIRES: not more bytes than the largest long.
    explicit ForeignMemBufferBase(std::span<const char> bytes) : _bytes(bytes) {
        _setSize(static_cast<long>(bytes.size()));
    }
    ~ForeignMemBufferBase() override;

    int read(long pos) override;
    int read(long pos, char* buf, int n) override;
    std::span<const char> view(long pos) override;

private:
    std::span<const char> _bytes;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_FOREIGNMEMBUFFERBASE_H
