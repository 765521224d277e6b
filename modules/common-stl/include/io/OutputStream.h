// OutputStream: an abstract byte sink.
//
// Every failure is an IOException. A stream is used by one thread at a time.
#ifndef COMMON_STL_IO_OUTPUTSTREAM_H
#define COMMON_STL_IO_OUTPUTSTREAM_H

#include <cstdint>
#include <span>

#include "CPObject.h"

namespace ZOV_SPACE {

// The order of the virtual operations is part of the framework's contract: destructor, toString, then as declared here.
// Add new ones at the end only. What a subclass does not override throws "Unimplemented", except where said.
// The write operations return the number of bytes written.
class OutputStream : public CPObject {
public:
    OutputStream() = default;
    OutputStream(const OutputStream&) = delete;
    OutputStream& operator=(const OutputStream&) = delete;
    ~OutputStream() override;

    virtual void close();
    virtual void flush();  // Default: nothing.
    virtual int write(char c);
    virtual int write(const char* s);  // Measures the text and calls write(s, length); nobody overrides it.
    virtual int write(const char* buf, int len);

    // A stream may lend the memory that its bytes end up in, so that they can be produced there instead of being
    // copied: writable bytes behind what was written so far, as many as the stream likes, and none when it wants
    // write() called from now on. They may be used until the next operation on the stream. Default: none.
    virtual std::span<char> lendSpace();
    // The first `n` of the bytes that were lent last have been written. IOException when none were.
    virtual void commitSpace(long n);
    virtual bool discards() const;  // Whether nobody looks at what is written. Default: false.
    // Whether so many lent bytes can be committed at once, because nothing would happen within them if they came in
    // pieces. Default: false.
    virtual bool takesAtOnce(std::int64_t n) const;
    // As commitSpace(), with the CRC-32 of the bytes, for who counts it. Default: ignores that.
    virtual void commitSummed(long n, std::uint32_t checkSum);
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_OUTPUTSTREAM_H
