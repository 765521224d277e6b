#include "zip/deep/ZipHeaderView.h"

#include <algorithm>
#include <array>

#include "ByteOrder.h"
#include "zip/ZipConstants.h"

namespace ZOV_SPACE {
namespace {

constexpr unsigned kLatestVersion = 63;  // Of the format, in tenths, that a reader may need.
constexpr unsigned kReservedFlags = 0xD780;
constexpr unsigned kLongestName = 4096;  // Bytes, of a header that nothing points to.
constexpr std::array<std::uint16_t, 22> kMethods{0,  1,  2,  3,  4,  5,  6,  8,  9,  10, 12,
                                                 14, 16, 18, 19, 20, 93, 94, 95, 96, 97, 98};
constexpr std::uint16_t kStrongEncryption = 99;

std::span<const unsigned char> unsignedBytes(std::span<const char> bytes) {
    return {reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()};
}

}  // namespace

std::optional<ZipClaim> ZipHeaderView::read(std::int64_t position) {
    const std::span<const char> bytes = _bytes.at(position, ZipConstants::LOCHDR);
    if (bytes.size() < ZipConstants::LOCHDR || loadU32(bytes.data()) != ZipConstants::LOCSIG) return std::nullopt;
    const char* const header = bytes.data();
    const unsigned extraLength = loadU16(header + ZipConstants::LOCEXT);
    ZipClaim claim;
    claim.isLocal = true;
    claim.headerStart = static_cast<std::uint32_t>(position);
    claim.flags = loadU16(header + ZipConstants::LOCFLG);
    claim.method = loadU16(header + ZipConstants::LOCHOW);
    claim.time = loadU32(header + ZipConstants::LOCTIM);
    claim.checkSum = loadU32(header + ZipConstants::LOCCRC);
    claim.packedSize = loadU32(header + ZipConstants::LOCSIZ);
    claim.unpackedSize = loadU32(header + ZipConstants::LOCLEN);
    claim.nameLength = loadU16(header + ZipConstants::LOCNAM);
    claim.nameStart = claim.headerStart + ZipConstants::LOCHDR;
    claim.dataStart = claim.nameStart + claim.nameLength + extraLength;
    if (claim.dataStart > _bytes.size()) return std::nullopt;
    const bool isLarge = claim.packedSize == ZipClaim::kNotSaid || claim.unpackedSize == ZipClaim::kNotSaid;
    if (isLarge) {
        const auto extra = _bytes.at(std::int64_t{claim.nameStart} + claim.nameLength, extraLength);
        ZipClaim::takeLarge(unsignedBytes(extra), claim.unpackedSize, claim.packedSize);
    }
    return claim;
}

bool ZipHeaderView::isPlausible(const ZipClaim& header) {
    const std::span<const char> bytes = _bytes.at(header.headerStart, ZipConstants::LOCHDR);
    const unsigned version = static_cast<unsigned char>(bytes[ZipConstants::LOCVER]);
    const bool isMethod = header.method == kStrongEncryption ||
                          std::find(kMethods.begin(), kMethods.end(), header.method) != kMethods.end();
    if (version > kLatestVersion || (header.flags & kReservedFlags) != 0 || !isMethod) return false;
    if (header.hasSizes()) {
        const bool isPlainlyStored = header.method == ZipConstants::STORED && !header.isEncrypted();
        if (isPlainlyStored && header.packedSize != header.unpackedSize) return false;
        if (header.dataEnd() > _bytes.size() || (header.packedSize == 0) != (header.unpackedSize == 0)) return false;
    }
    return isNamePlausible(header) && isExtraPlausible(header);
}

bool ZipHeaderView::isNamePlausible(const ZipClaim& header) {
    if (header.nameLength == 0 || header.nameLength > kLongestName) return false;
    const std::span<const char> name = _bytes.at(header.nameStart, header.nameLength);
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7F'; };
    return std::none_of(name.begin(), name.end(), isControl);
}

// A row of blocks that ends where the field does. What aligns the data behind it may leave a few bytes.
bool ZipHeaderView::isExtraPlausible(const ZipClaim& header) {
    constexpr std::size_t kBlockHead = 4;
    const std::int64_t start = std::int64_t{header.nameStart} + header.nameLength;
    std::span<const char> extra = _bytes.at(start, static_cast<std::size_t>(header.dataStart - start));
    while (extra.size() >= kBlockHead) {
        const std::size_t length = loadU16(extra.data() + 2);
        if (length > extra.size() - kBlockHead) return false;
        extra = extra.subspan(kBlockHead + length);
    }
    return true;
}

std::string ZipHeaderView::nameOf(const ZipClaim& claim) {
    const std::span<const char> name = _bytes.at(claim.nameStart, claim.nameLength);
    return {name.begin(), name.end()};
}

}  // namespace ZOV_SPACE
