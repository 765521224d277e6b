// WrappedLimitedBufferBase: a buffer that never holds more than a limit, and owns the buffer it wraps. An operation
// that would pass the limit stores the bytes that fit, reports the cut to the host once, and throws
// UnarchiveRatioExceed "BufferBase exceeded size limit". What is stored stays readable. Threads: as the inner buffer.
#ifndef ENGINE_SCAN_WRAPPEDLIMITEDBUFFERBASE_H
#define ENGINE_SCAN_WRAPPEDLIMITEDBUFFERBASE_H

#include <memory>
#include <span>
#include <utility>

#include "io/FilteredBufferBase.h"
#include "io/SmartBufferBase.h"

class WrappedLimitedBufferBase : public ZOV_SPACE::FilteredBufferBase {
public:
    static constexpr int kTypeWrappedLimited = 6;
    static constexpr long kHighestLimit = 0x7FFFFFFF;  // Bytes.

    // `limit` in bytes; 0 or less stands for kHighestLimit.
    WrappedLimitedBufferBase(std::unique_ptr<ZOV_SPACE::SmartBufferBase> inner, long limit);
    ~WrappedLimitedBufferBase() override;

    // Fewer bytes than wanted where the limit ends them.
    std::span<char> appendSpace(long wanted) override;
    void commitAppend(long n) override { _owned->commitAppend(n); }
    // Content above the memory barrier of all buffers moves to a file; see SmartBufferBase.
    void useSharedBarrier() { _owned->useSharedBarrier(); }
    // Hands the content out; nothing but the destructor may be called from then on.
    std::unique_ptr<ZOV_SPACE::SmartBufferBase> letGo() { return std::move(_owned); }

    int write(long pos, char c) override;
    int write(long pos, const char* buf, int n) override;
    int insert(long pos, char c) override;
    int insert(long pos, const char* buf, int n) override;
    int append(char c) override;
    int append(const char* buf, int n) override;

private:
    // Runs the operation with as many of the n bytes as fit when they end at `end`.
    template <class Operation>
    int limited(long long end, int n, Operation operation);
    [[noreturn]] void raiseExceeded();

    std::unique_ptr<ZOV_SPACE::SmartBufferBase> _owned;
    long _limit;
    bool _reported = false;
};

#endif  // ENGINE_SCAN_WRAPPEDLIMITEDBUFFERBASE_H
