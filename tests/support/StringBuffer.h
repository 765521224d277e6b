// StringBuffer: a buffer that holds the bytes of a string; StringSource: a stream over them as well.
#ifndef TESTS_SUPPORT_STRINGBUFFER_H
#define TESTS_SUPPORT_STRINGBUFFER_H

#include <string>

#include "io/BufferBaseStreams.h"
#include "io/MemBufferBase.h"

namespace ZOV_SPACE {

struct StringBuffer : MemBufferBase {
    explicit StringBuffer(const std::string& bytes) { append(bytes.data(), static_cast<int>(bytes.size())); }
};

struct StringSource {
    explicit StringSource(const std::string& bytes, long position = 0) : buffer(bytes), stream(&buffer, position) {}

    StringBuffer buffer;
    BufferBaseInputStream stream;
};

}  // namespace ZOV_SPACE

#endif  // TESTS_SUPPORT_STRINGBUFFER_H
