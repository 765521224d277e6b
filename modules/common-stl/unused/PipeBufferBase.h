// PipeBufferBase: a buffer between a producing thread and consuming threads. A read at the end waits until there are
// bytes or writing was closed. The inner buffer is borrowed.
//   Throws:  as the inner buffer.
//   Threads: any; a monitor guards every operation up to truncate(). getSize() and the other queries take no lock.
#ifndef COMMON_STL_UNUSED_PIPEBUFFERBASE_H
#define COMMON_STL_UNUSED_PIPEBUFFERBASE_H

#include <atomic>
#include <memory>

#include "Mutex.h"
#include "io/FilteredBufferBase.h"
#include "io/OutputStream.h"

namespace ZOV_SPACE {

class PipeProducerOutputStream;

class PipeBufferBase : public FilteredBufferBase {
public:
    explicit PipeBufferBase(BufferBase* inner);
    ~PipeBufferBase() override;

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
    std::span<const char> view(long pos) override;  // Always empty: the content may change at any time.

    // The stream that appends to this pipe: always the same one, owned by the pipe.
    PipeProducerOutputStream* getProducerOutputStream();
    void closeWriting();  // Final. Releases every waiting reader.

private:
    template <class Operation>
    int _notifying(Operation operation);

    bool _closed VOLE_GUARDED_BY(_mutex) = false;
    std::unique_ptr<PipeProducerOutputStream> _producer VOLE_GUARDED_BY(_mutex);
    Mutex _mutex;
    Condition _changed;
};

// Appends to a pipe. close() also closes the pipe for writing.
class PipeProducerOutputStream : public OutputStream {
public:
    explicit PipeProducerOutputStream(PipeBufferBase* pipe) : _pipe(pipe) {}
    ~PipeProducerOutputStream() override;

    using OutputStream::write;
    void close() override;
    void flush() override;
    int write(char c) override;
    int write(const char* buf, int len) override;

    // Detaches the stream from the pipe, from any thread: later writes succeed and their bytes are dropped.
    void ignoreProducer();

private:
    PipeBufferBase* _target() const;

    bool _closed = false;
    std::atomic<PipeBufferBase*> _pipe;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_UNUSED_PIPEBUFFERBASE_H
