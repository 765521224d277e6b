// StringBuffer: a buffer that holds the bytes of a string.
#ifndef TESTS_SUPPORT_STRINGBUFFER_H
#define TESTS_SUPPORT_STRINGBUFFER_H

#include <string>

#include "io/MemBufferBase.h"

namespace ZOV_SPACE {

struct StringBuffer : MemBufferBase {
    explicit StringBuffer(const std::string& bytes) { append(bytes.data(), static_cast<int>(bytes.size())); }
};

}  // namespace ZOV_SPACE

#endif  // TESTS_SUPPORT_STRINGBUFFER_H
