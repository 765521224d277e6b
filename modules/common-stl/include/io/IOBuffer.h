// IOBuffer: a cursor over a buffer, for file-like reading and writing. The buffer is borrowed and must outlive the
// cursor and every stream made from it.
//   Throws:  what the buffer throws; the cursor then stays where it was.
//   Threads: one; the cursor is not guarded.
#ifndef COMMON_STL_IO_IOBUFFER_H
#define COMMON_STL_IO_IOBUFFER_H

#include <memory>
#include <span>
#include <string>

#include "CPObject.h"
#include "io/BufferBase.h"
#include "io/BufferBaseStreams.h"

namespace ZOV_SPACE {

// The order of the fields is part of the framework's contract.
class IOBuffer : public CPObject {
public:
    explicit IOBuffer(BufferBase* buffer) : _buffer(buffer) {}
    IOBuffer(const IOBuffer&) = delete;
    IOBuffer& operator=(const IOBuffer&) = delete;
    ~IOBuffer() override;

    // Each works at the cursor, which moves past the bytes read, written or inserted.
    int read();                    // The byte 0..255, -1 at the end.
    int read(char* buf, int len);  // Bytes read, 0 at the end.
    int write(char c);
    int write(const char* buf, int len);  // Bytes written.
    int insert(char c);
    int insert(const char* buf, int len);  // Bytes inserted.
    // Removes up to `len` bytes behind the cursor, which stays.
    // Kept as is: answers the cursor, not the count; callers who need the count compare sizes.
    long cut(int len);
    int truncate();  // Ends the content at the cursor.

    long getSize() const { return _buffer->getSize(); }
    // Moves the cursor and returns it. A target before the start gives the start (whence 0), leaves the cursor where it
    // is (whence 1, relative to it) or gives the end (whence 2, relative to that); a sum beyond the largest long counts
    // as one. Targets beyond the end are allowed. Any other whence changes nothing.
    long seek(int whence, long offset);
    long tell() const { return _position; }

    // The content bytes that lie contiguously in memory from the cursor on; see BufferBase::view().
    std::span<const char> view() { return _buffer->view(_position); }

    // Streams over the same buffer that start at the cursor and then keep their own position; the input stream's mark
    // is 0.
    std::unique_ptr<BufferBaseInputStream> getInputStream();
    std::unique_ptr<BufferBaseOutputStream> getOutputStream();

private:
    BufferBase* _buffer;
    long _position = 0;
    std::string _text;  // Unused; part of the layout.
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_IOBUFFER_H
