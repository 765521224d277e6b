// Nearly every content comes here and has nothing, so each byte is looked at once at most, and of a large content only
// those where something can be expected.
#include "zip/deep/ZipWithin.h"

#include <algorithm>
#include <cstdint>

#include "ByteOrder.h"
#include "zip/ZipConstants.h"
#include "zip/deep/ZipDirectoryView.h"
#include "zip/deep/ZipHeaderView.h"
#include "zip/deep/ZipSweep.h"

namespace ZOV_SPACE {
namespace {

constexpr std::int64_t kSweptOfPrograms = std::int64_t{1} << 20;
constexpr std::int64_t kSweptOfOthers = std::int64_t{1} << 18;
constexpr std::int64_t kTail = ZipConstants::ENDHDR + 65535;  // With the longest comment.

// Numbers in a content, 0 where it has ended.
template <class Number>
std::int64_t numberAt(ZipBytes& bytes, std::int64_t position) {
    const std::span<const char> there = bytes.at(position, sizeof(Number));
    const Number number = there.size() < sizeof(Number) ? Number{} : loadLittleEndian<Number>(there.data());
    return static_cast<std::int64_t>(std::min<std::uint64_t>(number, ZipClaim::kNotSaid));
}

// Where the last section of a program for Windows ends.
std::int64_t endOfPe(ZipBytes& bytes) {
    constexpr std::int64_t kMostSections = 96, kSectionBytes = 40;
    const std::int64_t header = numberAt<std::uint32_t>(bytes, 60);
    constexpr std::uint32_t kPe = 0x00004550;
    if (bytes.signatureAt(header) != kPe) return 0;
    const std::int64_t count = std::min(numberAt<std::uint16_t>(bytes, header + 6), kMostSections);
    const std::int64_t sections = header + 24 + numberAt<std::uint16_t>(bytes, header + 20);
    std::int64_t end = 0;
    for (std::int64_t at = sections; at < sections + count * kSectionBytes; at += kSectionBytes) {
        end = std::max(end, numberAt<std::uint32_t>(bytes, at + 16) + numberAt<std::uint32_t>(bytes, at + 20));
    }
    return end;
}

// Where the table of sections ends, the last thing in a program for Linux.
std::int64_t endOfElf(ZipBytes& bytes) {
    constexpr std::int64_t kWide = 2;
    const bool isWide = numberAt<std::uint8_t>(bytes, 4) == kWide;
    const std::int64_t table = isWide ? numberAt<std::uint64_t>(bytes, 40) : numberAt<std::uint32_t>(bytes, 32);
    const std::int64_t sizes = isWide ? 58 : 46;
    return table + numberAt<std::uint16_t>(bytes, sizes) * numberAt<std::uint16_t>(bytes, sizes + 2);
}

// Looks through parts of a content, in ascending order.
class Search {
public:
    explicit Search(ZipBytes& bytes) : _bytes(bytes), _headers(bytes) {}

    void lookThrough(std::int64_t from, std::int64_t to) {
        from = std::max(from, _done);
        to = std::min(to, _bytes.size());
        for (auto mark = nextZipMark(_bytes, from, to); mark; mark = nextZipMark(_bytes, mark->position + 1, to)) {
            _hasEnd = _hasEnd || mark->signature == ZipConstants::ENDSIG;
            if (_hasHeader || mark->signature != ZipConstants::LOCSIG) continue;
            const auto header = _headers.read(mark->position);
            _hasHeader = header && _headers.isPlausible(*header);
        }
        _done = std::max(_done, to);
    }
    bool hasEnd() const { return _hasEnd; }
    bool hasHeader() const { return _hasHeader; }

private:
    ZipBytes& _bytes;
    ZipHeaderView _headers;
    std::int64_t _done = 0;
    bool _hasEnd = false;
    bool _hasHeader = false;
};

}  // namespace

ZipWithin findZipWithin(BufferBase& content) {
    constexpr std::uint32_t kElf = 0x464C457F;
    constexpr std::uint16_t kMz = 0x5A4D;
    ZipBytes bytes(content);
    const std::uint32_t first = bytes.signatureAt(0);
    const bool isMz = static_cast<std::uint16_t>(first) == kMz;
    const bool isProgram = isMz || first == kElf;
    Search search(bytes);
    search.lookThrough(0, isProgram ? kSweptOfPrograms : kSweptOfOthers);
    if (isProgram) search.lookThrough(isMz ? endOfPe(bytes) : endOfElf(bytes), bytes.size());
    search.lookThrough(bytes.size() - kTail, bytes.size());
    if (search.hasEnd()) {
        ZipDirectoryView directories(bytes);
        if (directories.readFromEnd() && !directories.takeClaims().empty()) return ZipWithin::archive;
    }
    return search.hasHeader() ? ZipWithin::header : ZipWithin::nothing;
}

}  // namespace ZOV_SPACE
