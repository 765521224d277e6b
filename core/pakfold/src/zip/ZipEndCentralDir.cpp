// The end record stands at the end of the archive, but for a comment of up to 64 KiB (APPNOTE.TXT, "End of central
// directory record"). It is searched for backwards, in blocks, so that the last place that looks like it is found
// first.
#include "zip/ZipEndCentralDir.h"

#include <algorithm>
#include <array>

#include "ByteOrder.h"
#include "IOUtils.h"
#include "zip/ZipConstants.h"
#include "zip/ZipSupport.h"

namespace ZOV_SPACE {
namespace {

constexpr long kSearchLength = 65535;
constexpr int kSearchStep = 1024;
constexpr int kSignatureSize = 4;

// Where the last end signature in the block begins, or -1.
int lastEndSignature(const char* block, int length) {
    for (int i = length - kSignatureSize; i >= 0; --i) {
        if (IOUtils::readUInt(block + i) == ZipConstants::ENDSIG) return i;
    }
    return -1;
}

}  // namespace

long ZipEndCentralDir::findPos(BufferBase& buffer) {
    const long size = buffer.getSize();
    const long searchLength = std::min(kSearchLength, size);
    if (searchLength <= kSignatureSize) return 0;
    std::array<char, kSearchStep + kSignatureSize> block;
    for (long end = kSignatureSize; end < searchLength;) {
        // Neighbouring blocks overlap, so that a signature across their border is seen.
        end = std::min(end + kSearchStep, searchLength);
        const long start = size - end;
        const int wanted = static_cast<int>(std::min<long>(static_cast<long>(block.size()), end));
        if (buffer.read(start, block.data(), wanted) < wanted) return 0;
        const int found = lastEndSignature(block.data(), wanted);
        if (found >= 0) return start + found;
    }
    return 0;
}

std::array<ZipEndCentralDir::Place, 4> ZipEndCentralDir::directoryPlaces(BufferBase& buffer, long position) const {
    constexpr int kLargeEnd = 56, kLocator = 20;  // Bytes.
    static constexpr Place kNone{-1, 0};
    const auto bySize = [](std::uint64_t end, std::uint64_t size, std::uint64_t offset) {
        if (size > end || offset > end) return kNone;
        return Place{static_cast<std::int64_t>(end - size), static_cast<std::int64_t>(offset)};
    };
    const auto end = static_cast<std::uint64_t>(position);
    const auto byOffset = [&](std::uint64_t offset) { return bySize(end, end - std::min(offset, end), offset); };
    std::array<Place, 4> places{bySize(end, directorySize, directoryOffset), byOffset(directoryOffset), kNone, kNone};
    std::array<char, kLargeEnd + kLocator> large;
    const long largeEnd = position - static_cast<long>(large.size());
    if (largeEnd < 0 || buffer.read(largeEnd, large.data(), large.size()) < static_cast<int>(large.size()))
        return places;
    if (IOUtils::readUInt(large.data()) != kZip64End) return places;
    const std::uint64_t size = loadU64(&large[40]), offset = loadU64(&large[48]);
    places[2] = bySize(static_cast<std::uint64_t>(largeEnd), size, offset), places[3] = byOffset(offset);
    return places;
}

bool ZipEndCentralDir::read(InputStream& in) {
    std::array<char, ZipConstants::ENDHDR> record;
    if (IOUtils::readFull(in, record.data(), ZipConstants::ENDHDR) < ZipConstants::ENDHDR) return false;
    if (IOUtils::readUInt(record.data()) != ZipConstants::ENDSIG) return false;
    disk = IOUtils::readUShort(&record[ZipConstants::ENDDSK]);
    directoryDisk = IOUtils::readUShort(&record[ZipConstants::ENDSRT]);
    entryCount = IOUtils::readUShort(&record[ZipConstants::ENDTOT]);
    directorySize = IOUtils::readUInt(&record[ZipConstants::ENDSIZ]);
    directoryOffset = IOUtils::readUInt(&record[ZipConstants::ENDOFF]);
    commentLength = IOUtils::readUShort(&record[ZipConstants::ENDCOM]);
    return true;
}

}  // namespace ZOV_SPACE
