#include "Utils.h"

#include <cstdarg>
#include <cstdio>

#include "Text.h"

namespace ZOV_SPACE {
namespace {

constexpr std::size_t kFormatBufferSize = 4096;  // The terminating NUL included.

}  // namespace

bool StringHelper::equalsIgnoreCase(const char* a, const char* b) {
    return a && b ? text::sameIgnoringCase(a, b) : a == b;
}

bool StringHelper::startsWithIgnoreCase(const char* text, const char* prefix) {
    return text && prefix && text::startsWithIgnoringCase(text, prefix);
}

bool StringHelper::endsWith(const char* text, const char* suffix) { return text::endsWith(text, suffix); }

std::optional<std::string_view> Utils::field(std::string_view line, int index, std::string_view separators) {
    if (index < 0) return std::nullopt;
    const std::string_view found = text::field(line, static_cast<std::size_t>(index), separators);
    return found.empty() ? std::nullopt : std::optional(found);
}

std::string Utils::formatString(const char* format, ...) {
    char text[kFormatBufferSize];
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return length < 0 ? std::string() : std::string(text);
}

}  // namespace ZOV_SPACE
