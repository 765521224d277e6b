#include <algorithm>
#include <cstring>

#include "Ascii.h"
#include "Raise.h"
#include "VoleUtil.h"
#include "util/Diag.h"

namespace ascii = ZOV_SPACE::ascii;

namespace {

constexpr diag::Unit kDiag{"VoleUtil"};

constexpr char kBlanks[] = " \r\n\t";
constexpr std::size_t kBytesSampled = 25;  // By hasInterChars() and hasPrintChars().
constexpr unsigned kHexDigitsCounted = 8;  // By hexstr2i(): what 32 bits hold.
constexpr unsigned kBitsPerHexDigit = 4;

bool isIn(const char* set, char c) { return c != '\0' && std::strchr(set, c); }

template <class Unsigned>
bool parseHex(const char* text, Unsigned* out) {
    constexpr std::size_t kMaxDigits = sizeof(Unsigned) * 2;
    if (!text || !out) return false;
    const std::size_t length = strnlen(text, kMaxDigits + 1);
    if (length == 0 || length > kMaxDigits) return false;

    *out = 0;
    for (std::size_t i = 0; i < length; ++i) {
        const int value = ascii::hexValue(text[i]);
        if (value < 0) return false;
        *out = static_cast<Unsigned>(*out << kBitsPerHexDigit | value);
    }
    return true;
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

// Cuts the text at `end`, then white space and NULs before it; the length left.
std::size_t stripBefore(char* text, std::size_t end) {
    text[end] = '\0';
    while (end > 0 && (text[end - 1] == '\0' || ascii::isSpace(text[end - 1]))) text[--end] = '\0';
    return end;
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

char loadShared(const char* address) { return __atomic_load_n(address, __ATOMIC_RELAXED); }

}  // namespace

bool VoleUtil::hex2uchar(const char* text, unsigned char* out) { return parseHex(text, out); }

bool VoleUtil::hex2ushort(const char* text, unsigned short* out) { return parseHex(text, out); }

int VoleUtil::hexch_val(char digit) { return ascii::hexValue(digit); }

int VoleUtil::hexstr2i(const char* text) {
    if (!text) return 0;
    const char* first = text;
    const char* last = text + std::strlen(text);
    if (first[0] == '0' && ascii::toLower(first[1]) == 'x') {
        first += 2;
    } else if (last != first && ascii::toLower(last[-1]) == 'h') {
        if (!ascii::isDigit(first[0])) return 0;
        --last;
    }

    unsigned value = 0;
    for (unsigned digits = 0; last != first; ++digits) {
        const int digit = ascii::hexValue(*--last);
        if (digit < 0) return 0;
        if (digits < kHexDigitsCounted) value |= static_cast<unsigned>(digit) << (digits * kBitsPerHexDigit);
    }
    return static_cast<int>(value);
}

bool VoleUtil::isDigit(const char* text) {
    if (!text) return false;
    while (ascii::isDigit(*text)) ++text;
    return *text == '\0';
}

bool VoleUtil::hasInterChars(const char* bytes, std::size_t length) { return anyOfSample(bytes, length, isTextByte); }

bool VoleUtil::hasPrintChars(const char* bytes, std::size_t length) {
    return anyOfSample(bytes, length, ascii::isPrint);
}

bool VoleUtil::endsWith(const char* text, const char* suffix) {
    if (!text || !suffix) return false;
    const std::size_t textLength = std::strlen(text);
    const std::size_t suffixLength = std::strlen(suffix);
    return suffixLength <= textLength && std::memcmp(text + textLength - suffixLength, suffix, suffixLength) == 0;
}

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

const char* VoleUtil::FirstChar(const char* text) { return text ? text + std::strspn(text, kBlanks) : nullptr; }

const char* VoleUtil::FirstSpace(const char* text) { return text ? text + std::strcspn(text, " \t") : nullptr; }

int VoleUtil::strcmp_nocase(const char* a, const char* b) {
    if (!a || !b) return -1;
    while (ascii::toLower(*a) == ascii::toLower(*b)) {
        if (*a == '\0') return 0;
        ++a;
        ++b;
    }
    return -1;
}

int VoleUtil::strncmp_nocase(char* a, const char* b, std::size_t n) {
    if (!a || !b) return -1;
    std::size_t length = 0;
    for (; length < n; ++length) {
        const char c = loadShared(a + length);
        if (ascii::toLower(c) != ascii::toLower(b[length])) return -1;
        if (c == '\0') break;
    }
    // Kept as is: a match rewrites the letter case of `a`, so that hosts see a list entry spelt as it was last asked
    // for. Another thread may be doing the same to `a`; single bytes that differ in case only do no harm.
    for (std::size_t i = 0; i < length; ++i) {
        if (loadShared(a + i) != b[i]) __atomic_store_n(a + i, b[i], __ATOMIC_RELAXED);
    }
    return 0;
}

char* VoleUtil::strrcpy(char* target, const char* source) {
    if (!target || !source) return nullptr;
    if (target == source) return target;
    const std::size_t length = std::strlen(source);
    std::memmove(target, source, length + 1);
    return target + length;
}

int VoleUtil::chomp(char* text) {
    if (!text) return -1;
    std::size_t length = std::strlen(text);
    while (length > 0 && (text[length - 1] == '\n' || text[length - 1] == '\r')) --length;
    text[length] = '\0';
    return static_cast<int>(length);
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

int VoleUtil::strstrip(char* text) { return text ? static_cast<int>(stripBefore(text, std::strlen(text))) : 0; }

char* VoleUtil::trim(char* text) { return trimx(text, kBlanks); }

char* VoleUtil::ltrim(char* text) { return ltrimx(text, kBlanks); }

char* VoleUtil::rtrim(char* text) { return rtrimx(text, kBlanks); }

char* VoleUtil::trimx(char* text, const char* set) { return ltrimx(rtrimx(text, set), set); }

char* VoleUtil::ltrimx(char* text, const char* set) {
    if (!text || !set) return nullptr;
    const char* kept = text + std::strspn(text, set);
    if (kept != text) std::memmove(text, kept, std::strlen(kept) + 1);
    return text;
}

char* VoleUtil::rtrimx(char* text, const char* set) {
    if (!text || !set) return nullptr;
    std::size_t length = std::strlen(text);
    while (length > 0 && isIn(set, text[length - 1])) --length;
    text[length] = '\0';
    return text;
}

char* VoleUtil::strtokbuf(const char* source, int index, const char* delimiters, char* target) {
    if (!source || !delimiters || !target || index < 0) return nullptr;
    for (; index > 0 && *source != '\0'; --index) {
        source += std::strcspn(source, delimiters);
        source += std::strspn(source, delimiters);
    }
    const std::size_t length = std::strcspn(source, delimiters);
    if (length == 0) return nullptr;
    std::memmove(target, source, length);
    target[length] = '\0';
    return target;
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
