// SmartBufferBase: a buffer that chooses its storage by policy and may move its content from memory to a temporary
// file once it passes a barrier. It owns the storage.
//
// The move is made by the operations that check the barrier, before they do their own work: both write() and
// insert(), cut(pos, n) and append(char).
// Kept as is: read(), cut(pos), append(buf, n) and truncate() do not check, so a bulk append never moves the content by
// itself; the next checking operation does.
// Threads: as the storage; the move itself is not atomic, so no other thread may use the buffer meanwhile.
#ifndef COMMON_STL_IO_SMARTBUFFERBASE_H
#define COMMON_STL_IO_SMARTBUFFERBASE_H

#include <memory>
#include <span>
#include <string>

#include "io/BufferBase.h"

namespace ZOV_SPACE {

// Where the content lives. Values of 5 and above give a buffer without storage, which is not valid.
enum BufferBasePolicy : int {
    kMemoryPolicy = 0,            // MemBufferBase, never moved.
    kMemoryOrFilePolicy = 1,      // MemBufferBase, or a file when the announced size or the content passes _barrier.
    kContinuousPolicy = 2,        // ContinuousMemBufferBase, never moved.
    kContinuousOrFilePolicy = 3,  // As 1, with ContinuousMemBufferBase.
    kFilePolicy = 4,              // A file, named and in _basePath unless that is empty.
};

class SmartBufferBase : public BufferBase {
public:
    // A missing size is 0, a missing policy is the current _policy.
    SmartBufferBase();
    explicit SmartBufferBase(BufferBasePolicy policy);
    explicit SmartBufferBase(long size);
    SmartBufferBase(long size, BufferBasePolicy policy);
    // With a barrier of its own, in bytes, until useSharedBarrier() is called.
    SmartBufferBase(long size, BufferBasePolicy policy, long barrier);
    ~SmartBufferBase() override;

    // A buffer over the first `size` bytes of an open file (see FileViewBufferBase), never moved. `fd` stays the
    // caller's. The result may be not valid.
    static std::unique_ptr<SmartBufferBase> viewOf(int fd, long size);

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

    // Like a bulk append these do not check the barrier.
    std::span<char> appendSpace(long n) override;
    void commitAppend(long n) override;
    void releaseSpare() override;
    bool sourceFailed() const override;

    // From now on _barrier counts; content that is larger moves at once, and other content keeps no more memory than it
    // needs. For a caller who owns the buffer alone.
    void useSharedBarrier();

    // Settings of every buffer made from now on (_barrier: of every check). Set them while no other thread uses
    // buffers.
    static BufferBasePolicy _policy;
    static long _barrier;  // Bytes.
    static std::string _basePath;

private:
    explicit SmartBufferBase(std::unique_ptr<BufferBase> inner);

    void _init(long size, BufferBasePolicy policy);
    long _currentBarrier() const { return _ownBarrier >= 0 ? _ownBarrier : _barrier; }
    void _checkBarrier();
    BufferBase& _storage() const;

    std::unique_ptr<BufferBase> _inner;
    bool _switchable = false;
    long _ownBarrier = -1;  // Negative: the shared one counts.
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_SMARTBUFFERBASE_H
