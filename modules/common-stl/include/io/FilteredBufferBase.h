// FilteredBufferBase: forwards every operation to another buffer; the base of buffers that add a rule.
//
// The inner buffer is borrowed: its maker destroys it, after the filter.
// Threads: as the inner buffer.
#ifndef COMMON_STL_IO_FILTEREDBUFFERBASE_H
#define COMMON_STL_IO_FILTEREDBUFFERBASE_H

#include "io/BufferBase.h"

namespace ZOV_SPACE {

class FilteredBufferBase : public BufferBase {
public:
    explicit FilteredBufferBase(BufferBase* inner) : _inner(inner) {}
    ~FilteredBufferBase() override;

    int read(long pos) override;
    int read(long pos, char* buf, int n) override;
    int write(long pos, char c) override;
    int write(long pos, const char* buf, int n) override;
    int insert(long pos, char c) override;
    int insert(long pos, const char* buf, int n) override;
    int cut(long pos) override;
    int cut(long pos, int n) override;
    int append(char c) override;
    int append(const char* buf, int n) override;
    int truncate(long len) override;
    long getSize() const override;
    bool isValid() const override;
    void discardUsedBuffer() override;
    char* getMemAddress() override;
    int getFileDescriptor() override;
    std::span<const char> view(long pos) override;

protected:
    BufferBase* _inner;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_FILTEREDBUFFERBASE_H
