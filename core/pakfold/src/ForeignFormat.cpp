// A table of magic numbers, and a check of the fields behind them where the magic number is short or could be text.
//
// Published descriptions: RFC 1952 (gzip), RFC 8878 (zstd), ECMA-119 (ISO 9660), POSIX.1-1988 and pax(1) (tar, cpio),
// compress(1), ar(5); the others by the formats' own documentation.
#include "unarchiver/ForeignFormat.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "ArchiveMarks.h"
#include "ByteOrder.h"
#include "ContentBytes.h"
#include "MailFormat.h"
#include "ProgramEnd.h"
#include "utils/Crc.h"

namespace ZOV_SPACE {
namespace {

using namespace std::string_view_literals;

constexpr std::size_t kHeadBytes = 512;  // As long as a tar header, the longest one that is looked at in most contents.

// What a content begins with, and the rest for those who ask.
class Head {
public:
    explicit Head(ProbedContent& probed) : _probed(probed), _content(probed.bytes()), _bytes(_content.view(0)) {
        if (_bytes.size() < kHeadBytes && static_cast<long>(_bytes.size()) < _content.getSize()) {
            const int count = _content.read(0, _own.data(), static_cast<int>(_own.size()));
            _bytes = std::span<const char>(_own).first(static_cast<std::size_t>(std::max(count, 0)));
        }
        _bytes = _bytes.first(std::min(_bytes.size(), kHeadBytes));
    }
    Head(const Head&) = delete;
    Head& operator=(const Head&) = delete;

    // Whether these bytes stand there.
    bool has(long position, std::string_view bytes) const {
        std::array<char, 16> read{};
        const std::span<const char> there = at(position, std::span(read).first(bytes.size()));
        return std::equal(there.begin(), there.end(), bytes.begin(), bytes.end());
    }
    // Numbers; 0 where the content has ended.
    unsigned byte(long position) const { return static_cast<unsigned char>(load<1>(position)[0]); }
    unsigned u16(long position) const { return loadU16(load<2>(position).data()); }
    unsigned u16Big(long position) const { return byte(position) << 8 | byte(position + 1); }
    std::uint32_t u32(long position) const { return loadU32(load<4>(position).data()); }
    // As many bytes as there are, copied to `space` unless they are in the head.
    std::span<const char> at(long position, std::span<char> space) const {
        const auto start = static_cast<std::size_t>(position);
        const bool isAll = _bytes.size() < kHeadBytes;
        if (isAll && start + space.size() > _bytes.size()) return _bytes.subspan(std::min(start, _bytes.size()));
        if (start + space.size() <= _bytes.size()) return _bytes.subspan(start, space.size());
        const int count = _content.read(position, space.data(), static_cast<int>(space.size()));
        return space.first(static_cast<std::size_t>(std::max(count, 0)));
    }
    ProbedContent& probed() const { return _probed; }
    BufferBase& content() const { return _content; }
    std::span<const char> head() const { return _bytes; }
    std::span<const char> from(long position) const { return _content.view(position); }
    long contentSize() const { return _content.getSize(); }

private:
    template <std::size_t n>
    std::array<char, n> load(long position) const {
        std::array<char, n> read{}, result{};
        const std::span<const char> there = at(position, read);
        std::copy(there.begin(), there.end(), result.begin());
        return result;
    }

    ProbedContent& _probed;
    BufferBase& _content;
    std::span<const char> _bytes;
    std::array<char, kHeadBytes> _own;
};

bool isCabinet(const Head& head) { return head.u32(4) == 0 && head.u32(12) == 0 && head.byte(25) == 1; }

bool isGzip(const Head& head) { return (head.byte(3) & 0xE0) == 0; }  // Flags that are reserved.

// Behind the block size a block or the end follows: pi or the square root of it, in decimal digits.
bool isBzip2(const Head& head) {
    const unsigned level = head.byte(3);
    return level >= '1' && level <= '9' &&
           (head.has(4, "\x31\x41\x59\x26\x53\x59") || head.has(4, "\x17\x72\x45\x38\x50\x90"));
}

bool isXz(const Head& head) { return head.byte(6) == 0 && head.byte(7) < 16; }

bool isZstd(const Head& head) { return (head.byte(4) & 0x08) == 0; }

// Frames that are to be skipped may be in front.
bool isZstdBehindSkipped(const Head& head) {
    constexpr int kMostSkipped = 16;
    std::int64_t frame = 0;
    for (int i = 0; i < kMostSkipped && frame < head.contentSize(); ++i) {
        const auto at = static_cast<long>(frame);
        if (i > 0 && head.has(at, "\x28\xB5\x2F\xFD")) return true;
        if ((head.byte(at) & 0xF0) != 0x50 || !head.has(at + 1, "\x2A\x4D\x18")) return false;
        frame += std::int64_t{8} + head.u32(at + 4);
    }
    return false;
}

// Properties that writers choose, a dictionary of two to some power or half of that more, a size that is either not
// known or may be one, and the first byte of the data, which is always 0.
bool isLzma(const Head& head) {
    const std::uint32_t dictionary = head.u32(1), bits = std::bit_width(dictionary);
    if (bits <= 12) return false;
    const bool isRound = std::popcount(dictionary) == 1 || dictionary == std::uint32_t{3} << (bits - 2);
    const std::uint32_t low = head.u32(5), high = head.u32(9);
    const bool isKnown = high < 0x40 && (high | low) != 0, isUnknown = (high & low) == 0xFFFFFFFF;
    return isRound && (isKnown || isUnknown) && head.contentSize() > 13 && head.byte(13) == 0;
}

bool isLz4(const Head& head) {
    const unsigned flags = head.byte(4), block = head.byte(5);
    return (flags & 0xC2) == 0x40 && (block & 0x8F) == 0 && block >= 0x40;
}

bool isLzip(const Head& head) {
    const unsigned dictionaryBits = head.byte(5) & 0x1F;
    return head.byte(4) == 1 && dictionaryBits >= 12 && dictionaryBits <= 29;
}

// The codes' greatest width, then the first code, in nine bits, which must be a byte's.
bool isCompress(const Head& head) {
    const unsigned flags = head.byte(2), bits = flags & 0x1F;
    return bits >= 9 && bits <= 16 && (flags & 0x60) == 0 && (head.byte(4) & 1) == 0;
}

// A number in octal digits, with blanks around it or a zero byte behind.
std::optional<long> octal(std::string_view field) {
    const std::size_t start = field.find_first_not_of(' ');
    if (start == field.npos) return std::nullopt;
    const std::size_t end = std::min(field.find_first_of(" \0"sv, start), field.size());
    if (end == start) return std::nullopt;
    long value = 0;
    for (const char digit : field.substr(start, end - start)) {
        if (digit < '0' || digit > '7') return std::nullopt;
        value = value * 8 + (digit - '0');
    }
    return value;
}

// The header's own check-sum: the sum of its bytes, with blanks in place of itself. Some writers took bytes to have a
// sign. It is enough: formats before "ustar" have nothing else.
bool isTar(const Head& head) {
    constexpr std::size_t kFieldStart = 148, kFieldBytes = 8;
    const std::span<const char> header = head.head();
    if (header.size() < kHeadBytes || header[0] == 0) return false;
    const auto announced = octal({header.data() + kFieldStart, kFieldBytes});
    if (!announced) return false;
    long sum = long{' '} * kFieldBytes, signedSum = sum;
    for (std::size_t i = 0; i < kHeadBytes; ++i) {
        if (i >= kFieldStart && i < kFieldStart + kFieldBytes) continue;
        sum += static_cast<unsigned char>(header[i]);
        signedSum += static_cast<signed char>(header[i]);
    }
    return *announced == sum || *announced == signedSum;
}

bool areDigits(const Head& head, std::size_t bytes, std::string_view digits) {
    return head.head().size() >= bytes &&
           std::string_view(head.head().data(), bytes).find_first_not_of(digits) == std::string_view::npos;
}

bool isCpioOctal(const Head& head) { return areDigits(head, 76, "01234567"); }
bool isCpioHex(const Head& head) { return areDigits(head, 110, "0123456789ABCDEFabcdef"); }

// The first member's name has the length that is announced, its final zero byte included.
bool hasCpioName(const Head& head, unsigned length) {
    constexpr std::size_t kStart = 26;
    if (length < 2 || kStart + length > head.head().size()) return false;
    return std::string_view(head.head().data() + kStart, length).find('\0') == length - 1;
}

bool isCpioLittle(const Head& head) { return hasCpioName(head, head.u16(20)); }
bool isCpioBig(const Head& head) { return hasCpioName(head, head.u16Big(20)); }

bool isAr(const Head& head) { return head.has(66, "`\n"); }  // Where the first member's header ends.

bool isIso9660(const Head& head) {
    const unsigned type = head.byte(32768);
    return (type <= 3 || type == 255) && head.byte(32774) == 1;
}

bool isArj(const Head& head) {
    constexpr unsigned kFewest = 30, kMost = 2600;
    constexpr long kStart = 4;
    const unsigned size = head.u16(2);
    if (size < kFewest || size > kMost) return false;
    std::array<char, kMost> space;
    const std::span<const char> header = head.at(kStart, std::span(space).first(size));
    return header.size() == size && Iso3309Crc().add(header.data(), size) == head.u32(kStart + static_cast<long>(size));
}

// "-lh5-" and its like; of the older header levels, the sum of the header's bytes, too.
bool isLha(const Head& head) {
    constexpr std::string_view kMethods = "01234567dsx";
    const unsigned size = head.byte(0), level = head.byte(20);
    if (!head.has(6, "-") || kMethods.find(static_cast<char>(head.byte(5))) == kMethods.npos || level > 3) return false;
    if (level > 1) return true;
    unsigned sum = 0;
    for (unsigned i = 0; i < size; ++i) sum += head.byte(2 + static_cast<long>(i));
    return size > 20 && (sum & 0xFF) == head.byte(1);
}

bool isAce(const Head& head) { return head.byte(4) == 0; }  // The kind of the first header.

bool isWim(const Head& head) { return head.u32(8) == 208; }  // Bytes of the header.

bool isXar(const Head& head) { return head.u16Big(4) >= 28 && head.u16Big(6) <= 1; }

bool isSquashFs(const Head& head) {
    const unsigned bits = head.u16(22);
    return head.u16(28) == 4 && bits < 32 && head.u32(12) == std::uint32_t{1} << bits;
}

bool isBigSquashFs(const Head& head) { return head.u16Big(28) >= 1 && head.u16Big(28) <= 3; }

bool isRpm(const Head& head) { return head.byte(4) >= 3 && head.byte(4) <= 4 && head.u16Big(6) <= 1; }

bool isChm(const Head& head) { return head.u32(4) >= 2 && head.u32(4) <= 4; }

bool isStuffIt(const Head& head) { return head.has(10, "rLau"); }

bool isZoo(const Head& head) { return head.has(0, "ZOO "); }

// What comes before the formats that can be opened; without anything behind the marker, there is no member.
bool isOldRar(const Head& head) {
    const auto headerBytes = static_cast<long>(head.u16(4));
    return headerBytes >= 7 && headerBytes < 0x1000 && head.contentSize() > headerBytes;
}

bool isMail(const Head& head) {
    if (!mayBeMail({head.head().data(), head.head().size()})) return false;
    const auto space = std::make_unique_for_overwrite<char[]>(kMostMailHeader);
    const std::span<const char> start = head.at(0, {space.get(), kMostMailHeader});
    return isMailWithParts({start.data(), start.size()});
}

// Where the content's last bytes are, in memory.
class Tail {
public:
    Tail(const Head& head, long mostBytes) : _start(std::max(head.contentSize() - mostBytes, 0L)) {
        _bytes = head.from(_start);
        if (_start + static_cast<long>(_bytes.size()) == head.contentSize()) return;
        const auto count = static_cast<std::size_t>(head.contentSize() - _start);
        _own = std::make_unique_for_overwrite<char[]>(count);
        _bytes = head.at(_start, {_own.get(), count});
    }

    std::string_view text() const { return {_bytes.data(), _bytes.size()}; }
    long start() const { return _start; }

private:
    long _start;
    std::unique_ptr<char[]> _own;
    std::span<const char> _bytes;
};

// Whether the record at `end` ends a ZIP archive with members, whose directory is right in front of it, or in front of
// the records for large archives.
bool isZipEnd(const Head& head, std::int64_t end) {
    constexpr std::uint32_t kSeeLarge = 0xFFFFFFFF;
    constexpr std::int64_t kLargeEndBytes = 56, kLocatorBytes = 20;
    const auto has = [&](std::int64_t position, std::string_view magic) {
        return position >= 0 && head.has(static_cast<long>(position), magic);
    };
    std::int64_t directoryEnd = end;
    std::uint32_t directoryBytes = head.u32(static_cast<long>(end) + 12);
    const std::int64_t largeEnd = end - kLocatorBytes - kLargeEndBytes;
    if (has(end - kLocatorBytes, "PK\6\7") && has(largeEnd, "PK\6\6")) {
        directoryEnd = largeEnd;
        if (directoryBytes == kSeeLarge) directoryBytes = head.u32(static_cast<long>(largeEnd) + 40);
    }
    return head.u16(static_cast<long>(end) + 10) > 0 && has(directoryEnd - directoryBytes, "PK\1\2");
}

// As an archive that can be opened begins.
bool isZip(const Head& head) {
    const bool isMarked = head.has(0, "PK00") || head.has(0, "PK\7\10");
    return head.has(isMarked ? 4 : 0, "PK\3\4");
}

// The end record is among the content's last bytes. What may stand behind it, readers pass over.
bool isZipBehindOthers(const Head& head) {
    constexpr std::size_t kEndBytes = 22, kLongestComment = 65535;
    if (isZip(head) || head.probed().isKnownWithout(ArchiveMark::zipEnd)) return false;
    const Tail tail(head, kEndBytes + kLongestComment);
    const std::string_view text = tail.text();
    // By the second half of its magic number, which is rarer than the first one.
    for (std::size_t half = text.find("\5\6", 2); half != text.npos; half = text.find("\5\6", half + 1)) {
        const std::size_t at = half - 2, left = text.size() - at;
        if (left < kEndBytes || !text.substr(at).starts_with("PK")) continue;
        if (isZipEnd(head, tail.start() + static_cast<long>(at))) return true;
    }
    return false;
}

// A program of Windows that unpacks itself: the archive begins where the last section ends.
bool isRarBehindProgram(const Head& head) {
    ContentBytes bytes(head.content());
    const std::int64_t end = endOfProgram(bytes).value_or(0);
    return end > 0 && end < bytes.size() && head.has(static_cast<long>(end), "Rar!\x1A\7");
}

// An archive that a program brings along, behind its sections or in one of them. Programs that read such archives have
// the magic number, too.
bool isInProgram(const Head& head, ArchiveMark::Kind kind, bool (*check)(std::span<const char>)) {
    constexpr std::size_t kChecked = 64;
    ContentBytes content(head.content());
    const auto isBetween = [&](std::int64_t from, std::int64_t to) {
        while (const auto mark = nextArchiveMark(content, kind, from, to)) {
            if (check(content.at(mark->position, kChecked))) return true;
            from = mark->position + 1;
        }
        return false;
    };
    if ((head.probed().marksAtBegin() & kind) != 0 && isBetween(0, kSweptAtBegin)) return true;
    const std::int64_t behind = endOfProgram(content).value_or(0);
    return isBetween(behind, behind + 1);
}

// The check-sum of the header's end is that of what follows it.
bool is7zInProgram(const Head& head) {
    return isInProgram(head, ArchiveMark::sevenZip, [](std::span<const char> there) {
        constexpr std::size_t kHeaderBytes = 32, kSummed = 12;
        if (there.size() < kHeaderBytes) return false;
        Iso3309Crc crc;
        crc.add(&there[kSummed], kHeaderBytes - kSummed);
        return crc.crc() == loadU32(&there[8]);
    });
}

bool isCabinetInProgram(const Head& head) {
    return isInProgram(head, ArchiveMark::cabinet, [](std::span<const char> there) {
        return there.size() >= 36 && loadU32(&there[12]) == 0 && there[25] == 1 && there[24] <= 3;
    });
}

struct Format {
    std::string_view name;  // With a byte 0 behind it.
    long position;
    std::string_view magic;
    bool (*check)(const Head&) = nullptr;  // Of the rest; null: the magic number says it all.
};

constexpr Format kFormats[] = {
    {"7z", 0, "7z\xBC\xAF\x27\x1C"},
    {"RAR 5", 0, "Rar!\x1A\x07\x01\0"sv},
    {"CAB", 0, "MSCF", isCabinet},
    {"gzip", 0, "\x1F\x8B\x08", isGzip},
    {"bzip2", 0, "BZh", isBzip2},
    {"xz", 0,
     "\xFD"
     "7zXZ\0"sv,
     isXz},
    {"zstd", 0, "\x28\xB5\x2F\xFD", isZstd},
    {"zstd", 1, "\x2A\x4D\x18", isZstdBehindSkipped},
    {"lzma", 0, "\x5D", isLzma},
    {"lz4", 0, "\x04\x22\x4D\x18", isLz4},
    {"lzip", 0, "LZIP", isLzip},
    {"lzop", 0, "\x89LZO\0\r\n\x1A\n"sv},
    {"compress", 0, "\x1F\x9D", isCompress},
    {"tar", 0, "", isTar},
    {"cpio", 0, "070707", isCpioOctal},
    {"cpio", 0, "070701", isCpioHex},
    {"cpio", 0, "070702", isCpioHex},
    {"cpio", 0, "\xC7\x71", isCpioLittle},
    {"cpio", 0, "\x71\xC7", isCpioBig},
    {"ar", 0, "!<arch>\n", isAr},
    {"ARJ", 0, "\x60\xEA", isArj},
    {"LHA", 2, "-lh", isLha},
    {"LHA", 2, "-lz", isLha},
    {"ACE", 7, "**ACE**", isAce},
    {"ZOO", 20, "\xDC\xA7\xC4\xFD", isZoo},
    {"WIM", 0, "MSWIM\0\0\0"sv, isWim},
    {"XAR", 0, "xar!", isXar},
    {"SquashFS", 0, "hsqs", isSquashFs},
    {"SquashFS", 0, "sqsh", isBigSquashFs},
    {"RPM", 0, "\xED\xAB\xEE\xDB", isRpm},
    {"CHM", 0, "ITSF", isChm},
    {"StuffIt", 0, "SIT!", isStuffIt},
    {"ISO 9660", 32769, "CD001", isIso9660},
    {"RAR 1.4", 0, "RE~^", isOldRar},
    {"RAR behind a program", 0, "MZ", isRarBehindProgram},
    {"7z in a program", 0, "MZ", is7zInProgram},
    {"7z in a program", 0,
     "\x7F"
     "ELF",
     is7zInProgram},
    {"CAB in a program", 0, "MZ", isCabinetInProgram},
    {"e-mail", 0, "", isMail},
    {"ZIP behind other data", 0, "", isZipBehindOthers},
};

constexpr bool isAtStart(const Format& format) { return format.position == 0 && !format.magic.empty(); }

// Whether a format that is known by its first bytes has this one, which few have.
constexpr auto kBegins = [] {
    std::array<bool, 256> begins{};
    for (const Format& format : kFormats) {
        if (isAtStart(format)) begins[static_cast<unsigned char>(format.magic[0])] = true;
    }
    return begins;
}();

bool fits(const Head& head, const Format& format) {
    return head.has(format.position, format.magic) && (!format.check || format.check(head));
}

// The first format that fits and of which `isAsked` is true.
template <class IsAsked>
const Format* findFormat(ProbedContent& content, IsAsked isAsked) {
    const Head head(content);
    const std::span<const char> bytes = head.head();
    const bool begins = !bytes.empty() && kBegins[static_cast<unsigned char>(bytes[0])];
    for (const Format& format : kFormats) {
        if ((begins || !isAtStart(format)) && isAsked(format) && fits(head, format)) return &format;
    }
    return nullptr;
}

}  // namespace

const char* foreignFormat(ProbedContent& content) {
    const Format* const found = findFormat(content, [](const Format&) { return true; });
    return found ? found->name.data() : nullptr;
}

const char* foreignFormat(BufferBase& content) {
    ProbedContent probed(content);
    return foreignFormat(probed);
}

bool hasForeignFormat(ProbedContent& content, std::string_view name) {
    return findFormat(content, [&](const Format& format) { return format.name == name; }) != nullptr;
}

}  // namespace ZOV_SPACE
