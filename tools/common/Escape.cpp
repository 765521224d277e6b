#include "Escape.h"

#include <cstddef>

#include "Utf8.h"

namespace {

bool isHarmless(char32_t value) {
    if (value < 0x20 || (value >= 0x7F && value <= 0x9F)) return false;
    if (value == 0x061C || value == 0x200E || value == 0x200F) return false;  // direction marks
    if (value >= 0x2028 && value <= 0x202E) return false;  // line and paragraph separator, embeddings, overrides
    return value < 0x2066 || value > 0x2069;               // isolates
}

void appendHexByte(std::string& line, unsigned char byte) {
    constexpr char kDigits[] = "0123456789abcdef";
    line += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0xF]};
}

void appendEscapedBytes(std::string& line, std::string_view bytes) {
    for (const char c : bytes) {
        switch (c) {
            case '\n':
                line += "\\n";
                break;
            case '\r':
                line += "\\r";
                break;
            case '\t':
                line += "\\t";
                break;
            default:
                appendHexByte(line, static_cast<unsigned char>(c));
        }
    }
}

}  // namespace

void appendEscaped(std::string& line, std::string_view text) {
    while (!text.empty()) {
        const Utf8Char next = firstUtf8Char(text);
        const std::size_t length = next.length == 0 ? 1 : next.length;
        if (next.value == '\\') {
            line += "\\\\";
        } else if (next.length != 0 && isHarmless(next.value)) {
            line += text.substr(0, length);
        } else {
            appendEscapedBytes(line, text.substr(0, length));
        }
        text.remove_prefix(length);
    }
}
