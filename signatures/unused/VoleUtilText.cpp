// Helpers for NUL-terminated strings: faces of Text.h that keep what callers have always got from them.
#include <algorithm>
#include <cstring>

#include "Ascii.h"
#include "Raise.h"
#include "Text.h"
#include "VoleUtil.h"
#include "util/Diag.h"

namespace ascii = ZOV_SPACE::ascii;
namespace text = ZOV_SPACE::text;

namespace {

constexpr diag::Unit kDiag{"VoleUtil"};

constexpr std::size_t kBytesSampled = 25;  // By hasInterChars() and hasPrintChars().
// What strip() takes off: white space, and NULs between it.
constexpr std::string_view kStripped(" \t\n\v\f\r\0", 7);

// Kept as is: before a character that is no digit, the digits count.
template <class Unsigned>
bool parseHex(const char* digits, Unsigned* out) {
    constexpr std::size_t kMaxDigits = sizeof(Unsigned) * 2;
    if (!digits || !out) return false;
    const std::string_view all(digits, strnlen(digits, kMaxDigits + 1));
    if (all.empty() || all.size() > kMaxDigits) return false;
    const auto good = static_cast<std::size_t>(std::find_if_not(all.begin(), all.end(), ascii::isXDigit) - all.begin());
    *out = text::hexNumber<Unsigned>(all.substr(0, good)).value_or(0);
    return good == all.size();
}

bool isTextByte(char c) {
    constexpr unsigned char kEscape = 27;
    const auto byte = static_cast<unsigned char>(c);
    return (byte >= '\b' && byte <= '\r') || byte == kEscape || ascii::isPrint(c) || byte >= 0x80;
}

template <class Predicate>
bool anyOfSample(const char* bytes, std::size_t length, Predicate predicate) {
    return bytes && std::any_of(bytes, bytes + std::min(length, kBytesSampled), predicate);
}

// Leaves `kept`, a part of the string, alone in it.
char* keep(char* string, std::string_view kept) {
    std::memmove(string, kept.data(), kept.size());
    string[kept.size()] = '\0';
    return string;
}

// Cuts the string at `end`, then white space and NULs before it; the length left.
std::size_t stripBefore(char* string, std::size_t end) {
    const std::size_t length = text::trimEnd({string, end}, kStripped).size();
    std::fill(string + length, string + end + 1, '\0');
    return length;
}

// A new string of both parts one after the other; null when memory is short.
char* concatenate(const char* a, std::size_t aLength, const char* b, std::size_t bLength) {
    if (bLength >= SIZE_MAX - aLength) return nullptr;
    auto* text = static_cast<char*>(std::malloc(aLength + bLength + 1));
    if (!text) return nullptr;
    std::memcpy(text, a, aLength);
    std::memcpy(text + aLength, b, bLength);
    text[aLength + bLength] = '\0';
    return text;
}

}  // namespace

bool VoleUtil::hex2uchar(const char* text, unsigned char* out) { return parseHex(text, out); }

bool VoleUtil::hex2ushort(const char* text, unsigned short* out) { return parseHex(text, out); }

int VoleUtil::hexch_val(char digit) { return ascii::hexValue(digit); }

int VoleUtil::hexstr2i(const char* number) {
    std::string_view digits = text::viewOf(number);
    if (digits.starts_with("0x") || digits.starts_with("0X")) {
        digits.remove_prefix(2);
    } else if (text::endsWithIgnoringCase(digits, "h")) {
        if (!ascii::isDigit(digits.front())) return 0;
        digits.remove_suffix(1);
    }
    return static_cast<int>(text::hexNumber<std::uint32_t>(digits).value_or(0));
}

bool VoleUtil::hasInterChars(const char* bytes, std::size_t length) { return anyOfSample(bytes, length, isTextByte); }

bool VoleUtil::hasPrintChars(const char* bytes, std::size_t length) {
    return anyOfSample(bytes, length, ascii::isPrint);
}

bool VoleUtil::endsWith(const char* string, const char* suffix) { return text::endsWith(string, suffix); }

const char* VoleUtil::memstr(const char* hay, std::size_t hayLength, const char* needle, std::size_t needleLength) {
    if (!hay || !needle || hayLength < needleLength) return nullptr;
    if (hay == needle || needleLength == 0) return hay;

    const char* const end = hay + (hayLength - needleLength) + 1;  // Behind the last place where the needle fits.
    while (hay != end) {
        hay = static_cast<const char*>(std::memchr(hay, needle[0], static_cast<std::size_t>(end - hay)));
        if (!hay || std::memcmp(hay, needle, needleLength) == 0) return hay;
        ++hay;
    }
    return nullptr;
}

const char* VoleUtil::FirstChar(const char* string) { return string ? text::trimStart(string).data() : nullptr; }

const char* VoleUtil::FirstSpace(const char* text) { return text ? text + std::strcspn(text, " \t") : nullptr; }

int VoleUtil::strcmp_nocase(const char* a, const char* b) { return a && b && text::sameIgnoringCase(a, b) ? 0 : -1; }

char* VoleUtil::strrcpy(char* target, const char* source) {
    if (!target || !source) return nullptr;
    if (target == source) return target;
    const std::size_t length = std::strlen(source);
    std::memmove(target, source, length + 1);
    return target + length;
}

int VoleUtil::chomp(char* string) {
    if (!string) return -1;
    const std::string_view kept = text::trimEnd(string, text::kLineEnds);
    keep(string, kept);
    return static_cast<int>(kept.size());
}

int VoleUtil::strip(char* buf, int size) {
    if (!buf || size < 1) {
        kDiag.at().err("in strip , buf == NULL, or len <= 0");
        return 0;
    }
    const std::size_t length = std::strlen(buf);
    const auto last = static_cast<std::size_t>(size) - 1;
    return static_cast<int>(last > length ? length : stripBefore(buf, last));
}

int VoleUtil::strstrip(char* string) { return string ? static_cast<int>(stripBefore(string, std::strlen(string))) : 0; }

char* VoleUtil::trim(char* string) { return string ? keep(string, text::trim(string)) : nullptr; }

char* VoleUtil::ltrim(char* string) { return string ? keep(string, text::trimStart(string)) : nullptr; }

char* VoleUtil::rtrim(char* string) { return string ? keep(string, text::trimEnd(string)) : nullptr; }

char* VoleUtil::trimx(char* string, const char* set) {
    return string && set ? keep(string, text::trim(string, set)) : nullptr;
}

char* VoleUtil::ltrimx(char* string, const char* set) {
    return string && set ? keep(string, text::trimStart(string, set)) : nullptr;
}

char* VoleUtil::rtrimx(char* string, const char* set) {
    return string && set ? keep(string, text::trimEnd(string, set)) : nullptr;
}

char* VoleUtil::strtokbuf(const char* source, int index, const char* delimiters, char* target) {
    if (!source || !delimiters || !target || index < 0) return nullptr;
    const std::string_view field = text::field(source, static_cast<std::size_t>(index), delimiters);
    return field.empty() ? nullptr : keep(target, field);
}

char* VoleUtil::NewStr(const char* text) { return text ? concatenate(text, std::strlen(text), "", 0) : nullptr; }

char* VoleUtil::AddStr(const char* a, const char* b) {
    if (!a) return NewStr(b);
    if (!b) return NewStr(a);
    return concatenate(a, std::strlen(a), b, std::strlen(b));
}

char* VoleUtil::NewCatStr(char* a, const char* b) {
    if (!a) return NewStr(b);
    if (!b) return a;
    const MallocText old(a);  // `b` may lie within it, so it goes last.
    return AddStr(a, b);
}

char* VoleUtil::SubStr(const char* text, std::size_t start, std::size_t length) {
    if (!text) return nullptr;
    const std::size_t textLength = std::strlen(text);
    if (start > textLength || length > textLength - start) return nullptr;
    return concatenate(text + start, length == 0 ? textLength - start : length, "", 0);
}

void VoleUtil::xcheck(const void* pointer, std::size_t length, const void* base, std::size_t baseLength) {
    const auto address = reinterpret_cast<std::uintptr_t>(pointer);
    const auto start = reinterpret_cast<std::uintptr_t>(base);
    if (address < start || address - start > baseLength || length > baseLength - (address - start)) {
        ZOV_SPACE::raise<ZOV_SPACE::Exception>("pointer out of range; take care!");
    }
}
