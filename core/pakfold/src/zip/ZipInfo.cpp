#include "zip/ZipInfo.h"

#include <algorithm>
#include <array>
#include <climits>
#include <new>
#include <optional>
#include <span>
#include <utility>

#include "ByteOrder.h"
#include "IOUtils.h"
#include "Raise.h"
#include "zip/ZipConstants.h"
#include "zip/ZipSupport.h"

namespace ZOV_SPACE {
namespace {

constexpr int kEncryptedFlag = 0x0001;
constexpr int kDescriptorLookAhead = 28;  // The longest descriptor, with sizes of 8 bytes, and the next signature.

constexpr unsigned kZip64FieldId = 0x0001;
constexpr std::size_t kZip64SizesLength = 16;  // The uncompressed and the compressed size, 8 bytes each.

// The content of the extra field's ZIP64 block.
std::optional<std::span<const unsigned char>> zip64Block(std::span<const unsigned char> extra) {
    while (extra.size() >= 4) {
        const unsigned id = loadU16(extra.data());
        const std::size_t length = loadU16(extra.data() + 2);
        extra = extra.subspan(4);
        if (length > extra.size()) break;
        if (id == kZip64FieldId) return extra.first(length);
        extra = extra.subspan(length);
    }
    return std::nullopt;
}

}  // namespace

bool ZipInfo::read(InputStream& in, bool headerOnly) {
    std::array<char, ZipConstants::LOCHDR> header;
    if (IOUtils::readFull(in, header.data(), ZipConstants::LOCHDR) < ZipConstants::LOCHDR) return false;
    if (IOUtils::readUInt(header.data()) != ZipConstants::LOCSIG) return false;
    version = IOUtils::readUShort(&header[ZipConstants::LOCVER]);
    flags = IOUtils::readUShort(&header[ZipConstants::LOCFLG]);
    if (flags & kEncryptedFlag) kZipUnit.raise<ArchivingException>("encrypted ZIP entry");
    method = IOUtils::readUShort(&header[ZipConstants::LOCHOW]);
    time = IOUtils::readUInt(&header[ZipConstants::LOCTIM]);
    if (!hasDataDescriptor()) readSizes(header.data());
    const int nameLength = IOUtils::readUShort(&header[ZipConstants::LOCNAM]);
    if (nameLength > ZipConstants::MAXNAMELENGTH) kZipUnit.raise<ArchivingException>("bad entry name");
    const int extraLength = IOUtils::readUShort(&header[ZipConstants::LOCEXT]);
    if (headerOnly) return true;
    in.reset();
    in.skip(ZipConstants::LOCHDR);
    readVariablePart(in, nameLength, extraLength);
    return true;
}

void ZipInfo::readSizes(const char* header) {
    checkSum = IOUtils::readUInt(header + ZipConstants::LOCCRC);
    compressedSize = static_cast<int>(IOUtils::readUInt(header + ZipConstants::LOCSIZ));
    uncompressedSize = static_cast<int>(IOUtils::readUInt(header + ZipConstants::LOCLEN));
}

void ZipInfo::readVariablePart(InputStream& in, int nameLength, int extraLength) {
    name.resize(static_cast<std::size_t>(nameLength));
    if (IOUtils::readFull(in, name.data(), nameLength) < nameLength) {
        IOUtils::readUChar(in);  // Reports the end.
        kZipUnit.raise<IOException>("unexpected EOF");
    }
    try {
        extra.resize(static_cast<std::size_t>(extraLength));
    } catch (const std::bad_alloc&) {
        kZipUnit.raise<OutOfMemoryException>("Out of memory");
    }
    const int count = IOUtils::readFull(in, reinterpret_cast<char*>(extra.data()), extraLength);
    extra.resize(static_cast<std::size_t>(std::max(count, 0)));
    takeLargeSizes();
}

// ZIP64 keeps the sizes in the extra field; those that an engine for files below 2 GiB can use are taken over.
void ZipInfo::takeLargeSizes() {
    const auto block = zip64Block(extra);
    _largeDescriptor = block.has_value();
    const bool elsewhere = compressedSize == -1 && uncompressedSize == -1 && !hasDataDescriptor();
    if (!elsewhere || !block || block->size() < kZip64SizesLength) return;
    const std::uint64_t unpacked = loadU64(block->data());
    const std::uint64_t packed = loadU64(block->data() + 8);
    if (unpacked > INT_MAX || packed > INT_MAX) return;
    uncompressedSize = static_cast<int>(unpacked);
    compressedSize = static_cast<int>(packed);
}

void ZipInfo::readDataDescriptor(InputStream& in) {
    std::array<char, kDescriptorLookAhead> bytes{};
    in.mark(kDescriptorLookAhead);
    const int available = IOUtils::readFull(in, bytes.data(), kDescriptorLookAhead);
    in.reset();
    const std::uint32_t first = IOUtils::readUInt(bytes.data());
    if (startsRecord(first)) return;

    const bool hasSignature = first == ZipConstants::EXTSIG;
    const char* const fields = bytes.data() + (hasSignature ? ZipConstants::EXTCRC : 0);
    // Sizes of 8 bytes have zeros in their upper halves, and no next record where two sizes of 4 bytes end. Not every
    // writer announces them.
    const bool large = IOUtils::readUInt(fields + 8) == 0 && IOUtils::readUInt(fields + 16) == 0 &&
                       !startsRecord(IOUtils::readUInt(fields + 12)) &&
                       (_largeDescriptor || startsRecord(IOUtils::readUInt(fields + 20)));
    checkSum = IOUtils::readUInt(fields);
    compressedSize = static_cast<int>(IOUtils::readUInt(fields + 4));
    uncompressedSize = static_cast<int>(IOUtils::readUInt(fields + (large ? 12 : 8)));
    const int length = (hasSignature ? ZipConstants::EXTHDR : ZipConstants::EXTHDR - 4) + (large ? 8 : 0);
    in.skip(std::min(length, available));
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
