#include "Utils.h"

#include <cstdarg>
#include <cstdio>

namespace ZOV_SPACE {
namespace {

constexpr std::size_t kFormatBufferSize = 4096;  // The terminating NUL included.

}  // namespace

std::string Utils::formatString(const char* format, ...) {
    char text[kFormatBufferSize];
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return length < 0 ? std::string() : std::string(text);
}

}  // namespace ZOV_SPACE
