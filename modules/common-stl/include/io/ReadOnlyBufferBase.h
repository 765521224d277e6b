// ReadOnlyBufferBase: what all buffers have in common whose content can be read, never changed: every operation that
// would change it throws IOException "Read-only BufferBase".
#ifndef COMMON_STL_IO_READONLYBUFFERBASE_H
#define COMMON_STL_IO_READONLYBUFFERBASE_H

#include "io/BufferBase.h"

namespace ZOV_SPACE {

class ReadOnlyBufferBase : public BufferBase {
public:
    ~ReadOnlyBufferBase() override;

    int write(long pos, char c) override;
    int write(long pos, const char* buf, int n) override;
    int insert(long pos, char c) override;
    int insert(long pos, const char* buf, int n) override;
    int cut(long pos) override;
    int cut(long pos, int n) override;
    int append(char c) override;
    int append(const char* buf, int n) override;
    int truncate(long len) override;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_READONLYBUFFERBASE_H
