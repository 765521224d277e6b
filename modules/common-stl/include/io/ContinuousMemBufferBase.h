// ContinuousMemBufferBase: a buffer in one contiguous memory area, which grows by what is asked for and a little more
// and never shrinks.
// Threads: any; a reader/writer lock guards the content, except where an operation says otherwise.
#ifndef COMMON_STL_IO_CONTINUOUSMEMBUFFERBASE_H
#define COMMON_STL_IO_CONTINUOUSMEMBUFFERBASE_H

#include <span>

#include "Mutex.h"
#include "io/BufferBase.h"
#include "io/MallocBytes.h"

namespace ZOV_SPACE {

class ContinuousMemBufferBase : public BufferBase {
public:
    // Starts with room for `n` bytes (negative counts as 0). Not valid when that cannot be allocated.
    explicit ContinuousMemBufferBase(long n);
    ~ContinuousMemBufferBase() override;

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
    char* getMemAddress() override
        VOLE_NO_THREAD_ANALYSIS;  // Null while nothing was allocated. Moves when the area grows.
    std::span<const char> view(long pos) override;
    std::span<char> appendSpace(long n) override VOLE_NO_THREAD_ANALYSIS;
    void commitAppend(long n) override VOLE_NO_THREAD_ANALYSIS;

private:
    bool _tryEnsureCapacity(long n) VOLE_REQUIRES(_lock);
    void _ensureCapacity(long n) VOLE_REQUIRES(_lock);
    void _resize(long size) VOLE_REQUIRES(_lock);
    void _pad(long pos, long n) VOLE_REQUIRES(_lock);
    void _write(long pos, const char* buf, int n) VOLE_REQUIRES(_lock);

    MallocBytes _data VOLE_GUARDED_BY(_lock);
    int _capacity VOLE_GUARDED_BY(_lock) = 0;
    long _given VOLE_GUARDED_BY(_lock) = 0;  // Bytes behind the content that commitAppend() may take.
    RWLock _lock;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_CONTINUOUSMEMBUFFERBASE_H
