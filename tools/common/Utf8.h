// Utf8.h: takes text that others wrote apart into characters.
#ifndef VOLE_TOOL_UTF8_H
#define VOLE_TOOL_UTF8_H

#include <cstddef>
#include <string_view>

struct Utf8Char {
    std::size_t length;  // bytes; 0: the text does not begin with a well-formed character
    char32_t value;
};

// Strict: no overlong forms, no surrogates, nothing beyond the last code point. REQUIRES: text is not empty.
Utf8Char firstUtf8Char(std::string_view text);

bool isUtf8(std::string_view text);

#endif  // VOLE_TOOL_UTF8_H
