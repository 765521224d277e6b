#include "Escape.h"

#include <cstddef>

namespace {

struct Utf8Char {
    std::size_t length;  // bytes; 0: the text does not begin with a well-formed character
    char32_t value;
};

constexpr Utf8Char kIllFormed{0, 0};

unsigned char byteAt(std::string_view text, std::size_t index) { return static_cast<unsigned char>(text[index]); }

// The length that a first byte announces, and the smallest value that needs that many bytes.
struct LeadByte {
    unsigned char mask, bits;
    std::size_t length;
    char32_t smallest;
};
constexpr LeadByte kLeadBytes[] = {
    {0x80, 0x00, 1, 0},
    {0xE0, 0xC0, 2, 0x80},
    {0xF0, 0xE0, 3, 0x800},
    {0xF8, 0xF0, 4, 0x10000},
};

Utf8Char firstCharacter(std::string_view text) {
    for (const LeadByte& lead : kLeadBytes) {
        const unsigned char first = byteAt(text, 0);
        if ((first & lead.mask) != lead.bits) continue;
        if (text.size() < lead.length) return kIllFormed;
        char32_t value = first & static_cast<unsigned char>(~lead.mask);
        for (std::size_t i = 1; i < lead.length; ++i) {
            if ((byteAt(text, i) & 0xC0) != 0x80) return kIllFormed;
            value = value << 6 | (byteAt(text, i) & 0x3Fu);
        }
        const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
        if (value < lead.smallest || value > 0x10FFFF || surrogate) return kIllFormed;
        return {lead.length, value};
    }
    return kIllFormed;
}

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
        const Utf8Char next = firstCharacter(text);
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
