// BufferBase: a random-access, growable byte store addressed by position. The storages are MemBufferBase,
// ContinuousMemBufferBase, FileBufferBase and FileViewBufferBase; SmartBufferBase chooses one of them;
// FilteredBufferBase forwards to another buffer.
//
// Rules of every storage, for the operations up to truncate():
// - IOException "Broken BufferBase" when the buffer is not valid, "Index out of bound" when a position is negative or
//   the content would end beyond the largest long.
// - An IOException with the system error text when memory or the file fails. What was written before the failing step
//   stays; a failed write, insert or append leaves the size as it was.
// - A null pointer or a count below 1 makes a bulk operation return 0 and change nothing.
// - Writing or inserting beyond the end first fills the gap with zero bytes.
// Threads: see the storages. getSize() takes no lock; beside a writer it answers the size before or after, or one on
// the way.
#ifndef COMMON_STL_IO_BUFFERBASE_H
#define COMMON_STL_IO_BUFFERBASE_H

#include <span>

#include "CPObject.h"

namespace ZOV_SPACE {

// The order of the virtual operations (destructor, toString, then as declared here) and of the fields is part of the
// framework's contract: add new ones at the end only.
class BufferBase : public CPObject {
public:
    // What getType() answers. 3 is never used.
    static constexpr int kTypeMemory = 0;  // Also of every class that does not set another.
    static constexpr int kTypeFile = 1;
    static constexpr int kTypeSmart = 2;
    static constexpr int kTypeContinuousMemory = 4;

    BufferBase() = default;
    BufferBase(const BufferBase&) = delete;
    BufferBase& operator=(const BufferBase&) = delete;
    ~BufferBase() override;

    virtual int read(long pos) = 0;                            // The byte 0..255, -1 at or beyond the end.
    virtual int read(long pos, char* buf, int n) = 0;          // Bytes copied, 0 at or beyond the end.
    virtual int write(long pos, char c) = 0;                   // Bytes written.
    virtual int write(long pos, const char* buf, int n) = 0;   // Bytes written.
    virtual int insert(long pos, char c) = 0;                  // Bytes inserted; what follows moves up.
    virtual int insert(long pos, const char* buf, int n) = 0;  // Bytes inserted; at or beyond the end as write().
    virtual int cut(long pos) = 0;                             // Bytes removed, 1, or 0 at or beyond the end.
    virtual int cut(long pos, int n) = 0;                      // Bytes removed; what follows moves down.
    virtual int append(char c) = 0;                            // Bytes appended.
    virtual int append(const char* buf, int n) = 0;            // Bytes appended.
    virtual int truncate(long len) = 0;                        // 0. Only ever makes the content shorter.
    virtual long getSize() const;                              // Bytes of content.
    virtual bool isValid() const;                              // Whether the storage could be created.
    virtual void discardUsedBuffer();                          // Keeps a SmartBufferBase from moving the content.
    virtual char* getMemAddress();                             // Start of contiguous content, null when there is none.
    virtual int getFileDescriptor();                           // -1 when there is none. Stays the buffer's.
    virtual int getType();
    // The content bytes that lie contiguously in memory from `pos` on; empty when the storage keeps none there or
    // `pos` is outside the content. Borrowed until the next operation that changes the buffer. No lock is held
    // afterwards: only for a caller who owns the buffer alone.
    virtual std::span<const char> view(long pos);

    // Filling the end in place, without an intermediate copy. appendSpace() gives `n` writable bytes that lie
    // contiguously behind the content; none when `n` is below 1 or the storage has no such memory. commitAppend()
    // makes the first `n` of them content: "Index out of bound" when they were not given. Any other change of the
    // buffer in between invalidates the space. No lock is taken: only for a caller who owns the buffer alone.
    virtual std::span<char> appendSpace(long n);
    virtual void commitAppend(long n);
    // Gives back memory behind the content, for a caller who owns the buffer alone. Default: there is none.
    virtual void releaseSpare();
    // Whether a file that the content is read from could not be read as announced. Default: false.
    virtual bool sourceFailed() const;

protected:
    // For getSize() without a lock: the field's type is part of the layout, so the accesses are atomic, not the field.
    // Writers exclude each other, and may read the field as it is.
    long _loadSize() const { return __atomic_load_n(&_size, __ATOMIC_RELAXED); }
    void _setSize(long size) { __atomic_store_n(&_size, size, __ATOMIC_RELAXED); }

    long _size = 0;
    bool _valid = true;
    bool _discarded = false;
    int _type = kTypeMemory;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_BUFFERBASE_H
