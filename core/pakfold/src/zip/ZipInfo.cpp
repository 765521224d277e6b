// Records are read whole into memory and their fields picked from there (APPNOTE.TXT, "Local file header"). The
// header's fixed part has the sizes in 4 bytes each; ZIP64 puts longer ones into a block of the extra field, which is a
// row of blocks: an identifier and a length of 2 bytes each, then the content.
#include "zip/ZipInfo.h"

#include <algorithm>
#include <array>
#include <climits>
#include <new>
#include <span>
#include <utility>

#include "ByteOrder.h"
#include "IOUtils.h"
#include "Raise.h"
#include "zip/ZipConstants.h"
#include "zip/ZipDescriptor.h"
#include "zip/ZipSupport.h"

namespace ZOV_SPACE {
namespace {

constexpr std::size_t kLargeSize = 8;  // Bytes.
constexpr int kSizeElsewhere = -1;     // All ones.

}  // namespace

bool ZipInfo::read(InputStream& in, bool headerOnly, bool lenient) {
    std::array<char, ZipConstants::LOCHDR> header;
    if (IOUtils::readFull(in, header.data(), ZipConstants::LOCHDR) < ZipConstants::LOCHDR) return false;
    if (IOUtils::readUInt(header.data()) != ZipConstants::LOCSIG) return false;
    version = IOUtils::readUShort(&header[ZipConstants::LOCVER]);
    flags = IOUtils::readUShort(&header[ZipConstants::LOCFLG]);
    if (isEncrypted() && !lenient) kZipUnit.raise<ArchivingException>("encrypted ZIP entry");
    method = IOUtils::readUShort(&header[ZipConstants::LOCHOW]);
    time = IOUtils::readUInt(&header[ZipConstants::LOCTIM]);
    if (!hasDataDescriptor()) readSizes(header.data());
    const int nameLength = IOUtils::readUShort(&header[ZipConstants::LOCNAM]);
    if (nameLength > ZipConstants::MAXNAMELENGTH && !lenient) kZipUnit.raise<ArchivingException>("bad entry name");
    const int extraLength = IOUtils::readUShort(&header[ZipConstants::LOCEXT]);
    if (headerOnly) return true;
    in.reset();
    in.skip(ZipConstants::LOCHDR);
    readVariablePart(in, nameLength, extraLength, lenient);
    return true;
}

void ZipInfo::readSizes(const char* header) {
    checkSum = IOUtils::readUInt(header + ZipConstants::LOCCRC);
    compressedSize = static_cast<int>(IOUtils::readUInt(header + ZipConstants::LOCSIZ));
    uncompressedSize = static_cast<int>(IOUtils::readUInt(header + ZipConstants::LOCLEN));
}

void ZipInfo::readVariablePart(InputStream& in, int nameLength, int extraLength, bool lenient) {
    name.resize(static_cast<std::size_t>(nameLength));
    if (IOUtils::readFull(in, name.data(), nameLength) < nameLength) {
        if (lenient) kZipUnit.raise<ArchivingException>("unexpected EOF");
        IOUtils::readUChar(in);  // Reports the end.
        kZipUnit.raise<IOException>("unexpected EOF");
    }
    try {
        extra.resize(static_cast<std::size_t>(extraLength));
    } catch (const std::bad_alloc&) {
        kZipUnit.raise<OutOfMemoryException>("Out of memory");
    }
    const int count = IOUtils::readFull(in, reinterpret_cast<char*>(extra.data()), extraLength);
    if (lenient && count < extraLength) kZipUnit.raise<ArchivingException>("unexpected EOF");
    extra.resize(static_cast<std::size_t>(std::max(count, 0)));
    takeLargeSizes();
}

// ZIP64 keeps a size that is all ones in the extra field instead, the uncompressed one first. A value that an engine
// for contents below 2 GiB cannot use leaves the size as it was.
void ZipInfo::takeLargeSizes() {
    if (hasDataDescriptor()) return;
    std::span<const unsigned char> block = zip64Block(extra);
    for (int* const size : {&uncompressedSize, &compressedSize}) {
        if (*size != kSizeElsewhere) continue;
        if (block.size() < kLargeSize) return;
        const std::uint64_t large = loadU64(block.data());
        if (large <= INT_MAX) *size = static_cast<int>(large);
        block = block.subspan(kLargeSize);
    }
}

bool ZipInfo::readDataDescriptor(InputStream& in) {
    std::array<char, ZipDescriptor::kLookAhead> bytes{};
    const int available = IOUtils::peekFull(in, bytes.data(), static_cast<int>(bytes.size()));
    const auto descriptor = ZipDescriptor::read(bytes.data());
    if (!descriptor) return false;
    checkSum = descriptor->checkSum;
    compressedSize = static_cast<int>(descriptor->packedSize);
    uncompressedSize = static_cast<int>(descriptor->unpackedSize);
    in.skip(std::min(descriptor->length, available));
    return true;
}

void ZipInfo::readCentralDirs(InputStream& in, int count) {
    while (centralDirs.size() < kMostCentralDirs) {
        auto entry = ZipCentralDir::getNextDir(in, count);
        if (!entry) return;
        centralDirs.push_back(std::move(entry));
        if (count > 0) --count;
    }
}

}  // namespace ZOV_SPACE
