// LimitedBufferBase: a buffer that refuses to work once its content has become larger than a limit.
#ifndef COMMON_STL_UNUSED_LIMITEDBUFFERBASE_H
#define COMMON_STL_UNUSED_LIMITEDBUFFERBASE_H

#include <span>

#include "io/FilteredBufferBase.h"

namespace ZOV_SPACE {

// Checks the inner size before every operation up to getSize(), and after those that can make the content larger or
// show it. The operation that passes the limit is carried out and then throws BufferBaseOverSizeException; so does
// every later one, reads and getSize() included.
class LimitedBufferBase : public FilteredBufferBase {
public:
    // `limit` in bytes; 0 or less: unlimited.
    LimitedBufferBase(BufferBase* inner, long limit) : FilteredBufferBase(inner), _limit(limit) {}
    ~LimitedBufferBase() override;

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
    std::span<const char> view(long pos) override;

private:
    void _ensureSize() const;
    template <class Operation>
    auto _checkedTwice(Operation operation) const;

    long _limit;
    mutable bool _exceeded = false;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_UNUSED_LIMITEDBUFFERBASE_H
