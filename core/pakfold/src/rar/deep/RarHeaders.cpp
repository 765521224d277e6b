#include "rar/deep/RarHeaders.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>

#include "ByteOrder.h"
#include "PositionInputStream.h"
#include "io/BufferBaseStreams.h"
#include "unarchiver/ScanBudget.h"
#include "utils/Crc.h"

namespace ZOV_SPACE {
namespace {

constexpr std::size_t kFixedBytes = 32;  // Of an entry's header, in front of its name.
constexpr std::size_t kTypeAt = 2;
// How far behind its mark an archive with a damaged header has its first entry.
constexpr std::int64_t kFurthestEntry = 65536;

// Whether an entry's header may have such fields in front of the name.
bool isPlausible(std::span<const char> header) {
    constexpr unsigned kNewestVersion = 50, kLastMethod = 0x35, kLastSystem = 15, kLargeBytes = 8;
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(header[at]); };
    const unsigned flags = loadU16(&header[3]), size = loadU16(&header[5]), nameSize = loadU16(&header[26]);
    const unsigned large = (flags & RarFileBlock::kLargeSizes) ? kLargeBytes : 0;
    return byte(kTypeAt) == RarBlock::kFile && byte(15) <= kLastSystem && byte(24) <= kNewestVersion &&
           byte(25) >= RarFileBlock::kStored && byte(25) <= kLastMethod && nameSize > 0 &&
           kFixedBytes + large + nameSize <= size;
}

// Where the first header begins that may be an entry's and whose fixed part is there; the number of bytes when none
// does.
std::size_t findPlausible(std::span<const char> bytes) {
    for (std::size_t at = 0; at + kFixedBytes <= bytes.size(); ++at) {
        const void* const type = std::memchr(&bytes[at + kTypeAt], RarBlock::kFile, bytes.size() - at - kTypeAt);
        if (!type) break;
        at = static_cast<std::size_t>(static_cast<const char*>(type) - bytes.data()) - kTypeAt;
        if (at + kFixedBytes <= bytes.size() && isPlausible(bytes.subspan(at))) return at;
    }
    return bytes.size();
}

}  // namespace

std::int64_t RarHeader::dataSize() const {
    return is(RarBlock::kFile) ? static_cast<const RarFileBlock&>(*block).packedSize() : std::int64_t{block->a_size};
}

std::int64_t RarHeader::end(std::int64_t contentSize) const {
    return dataStart + std::min(dataSize(), std::max<std::int64_t>(contentSize - dataStart, 0));
}

RarHeader RarHeaders::read(std::int64_t position) {
    RarHeader header;
    header.start = header.dataStart = position;
    if (position >= _bytes.size()) return header;
    BufferBaseInputStream source(&_bytes.buffer(), static_cast<long>(position));
    PositionInputStream in(&source, position);
    header.block = RarBlock::parseBlock(in);
    if (!header.block) return header;
    header.block->isLenient = true;
    header.isWhole = header.block->continueParse(in);
    header.dataStart = in.position();
    header.isSound = header.isWhole && header.block->verify();
    // Not all writers' check-sums of the others cover the same, but whoever looks for one where nothing leads to it
    // needs one that holds.
    const int type = header.block->h_type;
    if (header.isSound && type >= RarBlock::kFirstReserved) header.isSound = header.block->rawCrcFits();
    return header;
}

std::optional<std::int64_t> RarHeaders::nextEntry(std::int64_t from, std::int64_t to) {
    to = std::min(to, _bytes.size());
    while (from < to) {
        const std::int64_t wanted = std::min(ContentBytes::kBlock - from % ContentBytes::kBlock, to - from);
        std::span<const char> piece = _bytes.restOfBlock(from);
        if (piece.size() < static_cast<std::size_t>(wanted)) break;
        piece = piece.first(std::min(piece.size(), static_cast<std::size_t>(wanted) + kFixedBytes - 1));
        const std::size_t found = findPlausible(piece);
        from += std::min(static_cast<std::int64_t>(found), wanted);
        if (static_cast<std::int64_t>(found) >= wanted) {
            ScanBudget::worked(0);
            continue;
        }
        const RarHeader header = read(from);
        if (header.isSound) return from;
        if (!header.block) break;  // What was there a moment ago cannot be read any more.
        ScanBudget::chargeDiscardedBytes(header.block->h_size);
        ++from;
    }
    return std::nullopt;
}

std::optional<std::int64_t> RarHeaders::archiveAt(const ArchiveMark& mark) {
    const std::int64_t start = mark.end();
    if (mark.kind == ArchiveMark::rar5) return isRar5At(start) ? std::optional(start) : std::nullopt;
    const RarHeader archive = read(start);
    if (archive.is(RarBlock::kArchive) && archive.isSound) return start;
    const auto next = nextArchiveMark(_bytes, kRarMarks, start, start + kFurthestEntry);
    return nextEntry(start, next ? next->position : start + kFurthestEntry);
}

std::optional<ArchiveMark> RarHeaders::nextArchive(std::int64_t from, std::int64_t to) {
    auto mark = nextArchiveMark(_bytes, kRarMarks, from, to);
    while (mark && !archiveAt(*mark)) mark = nextArchiveMark(_bytes, kRarMarks, mark->position + 1, to);
    return mark;
}

// Whether the archive's first header is there: its CRC-32, its size as a number of seven bits to the byte, its type.
bool RarHeaders::isRar5At(std::int64_t position) {
    constexpr std::size_t kCrcBytes = 4, kMostSizeBytes = 3;
    constexpr std::size_t kMostBytes = 65536;
    constexpr unsigned kMain = 1, kEncryption = 4;
    const std::span<const char> bytes = _bytes.at(position, kMostBytes);
    std::size_t at = kCrcBytes, size = 0;
    for (unsigned shift = 0; at < bytes.size() && at < kCrcBytes + kMostSizeBytes; shift += 7) {
        const auto byte = static_cast<unsigned char>(bytes[at++]);
        size |= std::size_t{byte & 0x7FU} << shift;
        if (byte < 0x80) break;
    }
    if (size == 0 || at >= bytes.size() || size > bytes.size() - at) return false;
    const auto type = static_cast<unsigned char>(bytes[at]);
    const std::span<const char> checked = bytes.subspan(kCrcBytes, at - kCrcBytes + size);
    return (type == kMain || type == kEncryption) &&
           Iso3309Crc().add(checked.data(), static_cast<unsigned>(checked.size())) == loadU32(bytes.data());
}

}  // namespace ZOV_SPACE
