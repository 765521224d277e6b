// VoleUtil: what the engine's own code shares: diagnostic lines to the host, helpers for NUL-terminated byte strings
// and numbers, a reader of PE headers, and helpers around buffers and descriptors.
//
//   Owns:    nothing; there are no instances and there is no state.
//   Throws:  only xcheck() and readn(IOBuffer*, ...), as they say.
//   Threads: every function may be called from any thread. Arguments are the caller's to guard, except where
//            strncmp_nocase() says otherwise.
//
// A "string" is a NUL-terminated byte string. Letter case and character classes are those of ASCII, whatever locale
// the host has set. Strings that are returned as new are malloc'd: the caller releases them with free(), or holds them
// in a MallocText.
#ifndef SIGNATURES_VOLEUTIL_H
#define SIGNATURES_VOLEUTIL_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "ByteOrder.h"

namespace ZOV_SPACE {
class BufferBase;
class IOBuffer;
class SmartBufferBase;
}  // namespace ZOV_SPACE

// Owns a string that came from malloc().
struct MallocTextDeleter {
    void operator()(char* text) const { std::free(text); }
};
using MallocText = std::unique_ptr<char[], MallocTextDeleter>;

// One section of a PE file. Sizes and addresses are bytes; the file's own values but for the two adjustments that
// VoleUtil::getPeInfo() makes to the first section.
struct _SECTION {
    std::uint32_t unused[3];  // Never written and never read.
    std::uint32_t VirtualAddress;
    std::uint32_t VirtualSize;
    std::uint32_t PointerToRawData;  // Position of the section's data in the file.
    std::uint32_t SizeOfRawData;
};
static_assert(sizeof(_SECTION) == 28);

// What getPeInfo() learns of a PE file. Not copyable: `sections` may point into the record itself.
struct PeInfo2 {
    static constexpr unsigned kInlineSections = 15;
    static constexpr std::uint32_t kNoEntry = 0xFFFFFFFF;
    static constexpr int kSectionHeaderSize = 40;  // Bytes of one in the file, which begins with its name.

    PeInfo2() = default;
    PeInfo2(const PeInfo2&) = delete;
    PeInfo2& operator=(const PeInfo2&) = delete;

    std::uint32_t entryRaw = kNoEntry;              // File position of the entry point, or kNoEntry.
    std::uint16_t sectionCount = 0;                 // NumberOfSections.
    _SECTION inlineSections[kInlineSections] = {};  // In use when there are at most 15 sections.
    std::unique_ptr<_SECTION[]> heapSections;       // In use when there are more.
    _SECTION* sections = nullptr;    // Whichever of the two is in use; null before the first table was read.
    std::uint64_t sectionTable = 0;  // File position of the first section header.
};

class VoleUtil {
public:
    VoleUtil() = delete;

    // Diagnostic lines. The position is what the caller last stored through diag; most code calls diag::Site, which
    // stores it and delivers in one step. Lines are cut at diag::kMessageSize - 1 bytes.
    static void DbgMsg(const char* format, ...) __attribute__((format(printf, 1, 2)));  // Level 3 and above.
    static void InMsg(const char* format, ...) __attribute__((format(printf, 1, 2)));   // Any level.
    static void ErrMsg(const char* format, ...) __attribute__((format(printf, 1, 2)));  // Level 1 and above.

    // Numbers. A unit of 0 leaves the value as it is. alignUp() wraps at 32 bits.
    static constexpr std::uint32_t alignDown(std::uint32_t value, std::uint32_t unit) {
        return unit == 0 ? value : value - value % unit;
    }
    static constexpr std::uint32_t alignUp(std::uint32_t value, std::uint32_t unit) {
        const std::uint32_t down = alignDown(value, unit);
        return down == value ? value : down + unit;
    }
    static constexpr std::uint32_t min(std::uint32_t a, std::uint32_t b) { return a < b ? a : b; }

    // Little-endian file order to host order and back, for fields that were copied as they stand.
    static constexpr std::uint16_t EC16(std::uint16_t value) { return value; }
    static constexpr std::uint32_t EC32(std::uint32_t value) { return value; }

    // 4 bytes at any address, least significant first.
    static std::uint32_t readInt(const char* bytes) { return ZOV_SPACE::loadU32(bytes); }
    static void writeInt(char* bytes, std::uint32_t value) { ZOV_SPACE::storeLittleEndian(bytes, value); }

    // Hexadecimal text. hex2uchar() takes 1 or 2 digits, hex2ushort() 1 to 4; false for anything else and for nulls.
    // When a character is no digit, `out` is what the digits before it make.
    static bool hex2uchar(const char* text, unsigned char* out);
    static bool hex2ushort(const char* text, unsigned short* out);
    static int hexch_val(char digit);  // 0-15, or -1.
    // "0x1F", "1Fh" (which must start with a decimal digit) or "1F"; 0 for anything else. Only the last 8 digits
    // count.
    static int hexstr2i(const char* text);

    // Questions about bytes. The two "has" functions look at the first min(length, 25) bytes.
    static bool isDigit(const char* text);  // Decimal digits only; true for the empty string.
    static bool hasInterChars(const char* bytes, std::size_t length);  // 8-13, 27, 32-126, 128-255.
    static bool hasPrintChars(const char* bytes, std::size_t length);  // 32-126.
    static bool endsWith(const char* text, const char* suffix);

    // Searching. memstr(): the needle's first occurrence, or null. FirstChar(): the first byte that is none of blank,
    // TAB, CR, LF. FirstSpace(): the first blank or TAB. Both stop at the NUL.
    static const char* memstr(const char* hay, std::size_t hayLength, const char* needle, std::size_t needleLength);
    static const char* FirstChar(const char* text);
    static char* FirstChar(char* text) { return const_cast<char*>(FirstChar(static_cast<const char*>(text))); }
    static const char* FirstSpace(const char* text);
    static char* FirstSpace(char* text) { return const_cast<char*>(FirstSpace(static_cast<const char*>(text))); }

    // 0 for equal texts, ignoring ASCII case; -1 otherwise and for nulls. There is no order.
    static int strcmp_nocase(const char* a, const char* b);
    // The same for the first n bytes, or up to the NUL when both texts end sooner. Texts that differ in case only are
    // made equal: `a` takes over the letter case of `b`. Bytes of `a` are read and written atomically, so threads may
    // share an `a` as long as each looks at it through this function.
    static int strncmp_nocase(char* a, const char* b, std::size_t n);

    // Editing in place. strrcpy() copies `source` and returns the NUL that it wrote, `target` itself when the two are
    // the same, null for a null. chomp() removes the trailing run of CR and LF and returns the new length, -1 for null.
    static char* strrcpy(char* target, const char* source);
    static int chomp(char* text);
    // Clears white space at the end of a text of at most size - 1 bytes, cutting it to that first; returns the new
    // length. A size beyond the text's NUL changes nothing.
    static int strip(char* buf, int size);
    static int strstrip(char* text);
    // White space is blank, CR, LF and TAB; the x forms take a set. All return `text`; null for a null.
    static char* trim(char* text);
    static char* ltrim(char* text);
    static char* rtrim(char* text);
    static char* trimx(char* text, const char* set);
    static char* ltrimx(char* text, const char* set);
    static char* rtrimx(char* text, const char* set);

    // Copies field number `index`, counted from 0, to `target` and returns it; null when the field is empty or absent.
    // A run of delimiters is one separator, also at the start (field 0 is then empty).
    // REQUIRES: `target` has room for all of `source`.
    static char* strtokbuf(const char* source, int index, const char* delimiters, char* target);

    // New strings; null when memory is short. One null part counts as absent, two give null. NewCatStr() always
    // releases or returns its heap string `a`. SubStr(): length 0 means up to the end; null when the range leaves text.
    [[nodiscard]] static char* NewStr(const char* text);
    [[nodiscard]] static char* AddStr(const char* a, const char* b);
    [[nodiscard]] static char* NewCatStr(char* a, const char* b);
    [[nodiscard]] static char* SubStr(const char* text, std::size_t start, std::size_t length);

    // Throws ZOV_SPACE::Exception "pointer out of range; take care!" unless `length` bytes at `pointer` lie within
    // `baseLength` bytes at `base`.
    static void xcheck(const void* pointer, std::size_t length, const void* base, std::size_t baseLength);

    // Reads until n bytes are in or the end is met; the number of bytes read, -1 on an error. Interrupted reads are
    // taken up again. readnAt() neither uses nor moves the descriptor's position. The buffer form lets the buffer's
    // exceptions through.
    static int readn(int fd, char* buf, int n);
    static int readnAt(int fd, char* buf, int n, std::int64_t position);
    static int readn(ZOV_SPACE::IOBuffer* buffer, char* buf, int n);

    // PE headers. The descriptor forms neither use nor move the descriptor's position, and need one that can seek; the
    // buffer forms leave the cursor anywhere. false and -1 also mean that reading failed or memory is short; the buffer
    // forms set `failed` then, and leave it alone otherwise.
    static bool checkPeFile(ZOV_SPACE::IOBuffer* buffer, bool* failed = nullptr);
    static bool checkPeFile(int fd);
    // 0, or -1: then sectionCount is 0, unless all was read and only the entry point lies in no section. The first
    // section's PointerToRawData is rounded down to a multiple of 512, and its SizeOfRawData up, when others follow.
    static int getPeInfo(ZOV_SPACE::IOBuffer* buffer, PeInfo2* info, bool* failed = nullptr);
    static int getPeInfo(int fd, PeInfo2* info);
    // File position of a relative virtual address as 32 bits, or 0xFFFFFFFF.
    static std::uint32_t getRawAddr(std::uint32_t rva, const _SECTION* sections, std::uint16_t count);

    // Takes the first line off `text`, without its end. A line ends at the first LF within `room` bytes; if there is
    // none, at the first CR; else after `room` bytes. "\r\n" therefore leaves the CR in the line. The result stops
    // short of a NUL, as the text of a C string does; what is behind the NUL is taken off with the line.
    static std::string_view takeLine(std::string_view& text, std::size_t room);

    // Reads the next line, at most size - 1 bytes, as takeLine() does; returns buf, null when nothing is left or
    // reading failed. The cursor is left behind the line's end.
    static char* readOneLine(char* buf, int size, ZOV_SPACE::IOBuffer* buffer);

    // A new buffer with the first `size` bytes of the descriptor, or fewer when it ends sooner; null when it cannot be
    // read, or when there is no memory. Above SmartBufferBase::_barrier the file is not copied: the buffer reads from a
    // duplicate of the descriptor when asked to. Neither uses nor moves the descriptor's position.
    static std::unique_ptr<ZOV_SPACE::SmartBufferBase> getSmartBufferBase(int fd, unsigned int size);

    // Writes the buffer to a file below the host's dump directory, under its cleaned name; nothing when no directory
    // is set. Names cannot leave the directory, nor can links that were planted in it.
    static void dumpBufferBase(ZOV_SPACE::BufferBase* buffer, const std::string& name);
    // The same below another directory; nothing when that is empty.
    static void dumpBufferBase(ZOV_SPACE::BufferBase* buffer, const std::string& name, const std::string& directory);

    // Collapses every run of '/' into one, in place.
    static void DepuratePathname(std::string& path);
};

#endif  // SIGNATURES_VOLEUTIL_H
