#include "Utf8.h"

namespace {

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

}  // namespace

Utf8Char firstUtf8Char(std::string_view text) {
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

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = firstUtf8Char(text).length;
        if (length == 0) return false;
        text.remove_prefix(length);
    }
    return true;
}
