// MemBufferBase: a buffer in a list of memory blocks, so that inserting and cutting touch one block and renumber the
// later ones instead of moving the whole content.
//
// Blocks ascend by start and follow each other without a gap; only the last one may hold fewer bytes than its
// capacity. Blocks come from calloc: capacity that was never written costs no memory.
// Threads: any; a reader/writer lock guards the content, except where an operation says otherwise.
#ifndef COMMON_STL_IO_MEMBUFFERBASE_H
#define COMMON_STL_IO_MEMBUFFERBASE_H

#include <cstdint>
#include <span>
#include <vector>

#include "Mutex.h"
#include "io/BufferBase.h"
#include "io/MallocBytes.h"

namespace ZOV_SPACE {

class MemBufferBase : public BufferBase {
public:
    MemBufferBase();
    // Starts with room for `n` bytes (negative counts as 0). Not valid when that cannot be allocated.
    explicit MemBufferBase(long n);
    ~MemBufferBase() override;

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
    std::span<const char> view(long pos) override;

    std::span<char> appendSpace(long n) override VOLE_NO_THREAD_ANALYSIS;
    void commitAppend(long n) override VOLE_NO_THREAD_ANALYSIS;
    // Memory counts even while it is untouched where addresses are scarce.
    void releaseSpare() override;

private:
    struct Buffer {
        // `n` zero bytes; at least kMinBlock unless `exact`. IOException with the system text when there is no memory.
        Buffer(long firstPosition, long n, bool exact);

        int room() const { return capacity - used; }
        std::int64_t end() const { return std::int64_t{start} + capacity; }
        void cut(int offset, int n);  // REQUIRES: offset + n <= used. Leaves capacity == used.
        void shrinkToUsed();
        void zeroAppend(int n);                                // REQUIRES: n <= room().
        void overwrite(int offset, const char* bytes, int n);  // REQUIRES: offset <= used, offset + n <= capacity.

        long start;    // Position of the block's first byte in the buffer.
        int capacity;  // Bytes allocated.
        int used;      // Bytes of content.
        MallocBytes data;
        int touched;  // Bytes from here on are still the zeros they were allocated as.
    };

    static constexpr int kMinBlock = 4096;

    void _resize(long size) VOLE_REQUIRES(_lock);
    int _findBlock(long pos) const VOLE_REQUIRES_SHARED(_lock);
    void _addBlock(std::size_t index, Buffer&& block) VOLE_REQUIRES(_lock);
    void _startBlock(long n) VOLE_REQUIRES(_lock);
    void _ensureCapacity(long n) VOLE_REQUIRES(_lock);
    void _pad(long n) VOLE_REQUIRES(_lock);
    void _write(long pos, const char* buf, int n) VOLE_REQUIRES(_lock);
    void _insertInside(long pos, const char* buf, int n) VOLE_REQUIRES(_lock);
    int _cut(long pos, int n);

    std::vector<Buffer> _buffers VOLE_GUARDED_BY(_lock);
    long _given VOLE_GUARDED_BY(_lock) = 0;  // Bytes behind the content that commitAppend() may take.
    RWLock _lock;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_MEMBUFFERBASE_H
