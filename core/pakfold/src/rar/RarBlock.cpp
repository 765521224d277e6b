#include "rar/RarBlock.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>

#include "ByteOrder.h"
#include "Exception.h"
#include "IOUtils.h"
#include "util/Diag.h"

namespace ZOV_SPACE {
namespace {

constexpr diag::Unit kDiag{"../../core/pakfold/src/unarchiver/Rar"};

constexpr int kCommonBytes = 7;
constexpr int kDataSizeBytes = 4;
constexpr int kFewestFileBytes = 32;  // A file header without a name.
constexpr int kSaltBytes = 8;

template <class T>
void addField(RarCrc& crc, T value) {
    char bytes[sizeof(T)];
    storeLittleEndian(bytes, value);
    crc.add(bytes, sizeof bytes);
}

void addText(RarCrc& crc, std::string_view text) { crc.add(text.data(), static_cast<unsigned int>(text.size())); }

std::int64_t joinSize(std::uint32_t high, std::uint32_t low) {
    const std::uint64_t size = std::uint64_t{high} << 32 | low;
    constexpr std::uint64_t kLargest = std::numeric_limits<std::int64_t>::max();
    return static_cast<std::int64_t>(std::min(size, kLargest));
}

int headerCrc(const RarCrc& crc) { return static_cast<int>(~crc.crc() & 0xFFFF); }

bool readExactly(InputStream& in, char* buf, int n) { return IOUtils::readFull(in, buf, n) == n; }

// Appends n bytes to the text. False when there are less.
bool readExactly(InputStream& in, std::string& text, int n) {
    const std::size_t size = text.size();
    text.resize(size + static_cast<std::size_t>(n));
    return readExactly(in, text.data() + size, n);
}

// The rest of a header; every byte of it goes into the checksum.
class RarHeaderStream : public BoundedInputStream {
public:
    RarHeaderStream(InputStream* in, int total, RarCrc& crc) : BoundedInputStream(in, total), _crc(crc) {}

    using BoundedInputStream::read;
    int read(char* buf, int len) override {
        const int count = BoundedInputStream::read(buf, len);
        if (count > 0) _crc.add(buf, static_cast<unsigned int>(count));
        return count;
    }
    // By reading, for the checksum: the base class would not.
    long skip(long n) override { return InputStream::skip(n); }  // NOLINT(bugprone-parent-virtual-call)

private:
    RarCrc& _crc;
};

std::unique_ptr<RarBlock> makeBlock(int type) {
    if (type == RarBlock::kMarker) return std::make_unique<RarMarkerBlock>();
    if (type == RarBlock::kArchive) return std::make_unique<RarArchiveBlock>();
    if (type == RarBlock::kFile) return std::make_unique<RarFileBlock>();
    if (type >= RarBlock::kFirstReserved && type <= RarBlock::kLastReserved) {
        return std::make_unique<RarReservedBlock>();
    }
    kDiag.at().dbg("Unknown rar type [%02x]", static_cast<unsigned>(type));
    return nullptr;
}

}  // namespace

RarBlock::~RarBlock() = default;

std::unique_ptr<RarBlock> RarBlock::parseBlock(InputStream& in, int depth) {
    if (depth > kMostNested) return nullptr;
    try {
        char common[kCommonBytes];
        char dataSize[kDataSizeBytes] = {};
        if (!readExactly(in, common, kCommonBytes)) return nullptr;
        const int type = IOUtils::readUChar(common + 2);
        const bool hasDataSize = announcesData(type, IOUtils::readUShort(common + 3));
        if (hasDataSize && !readExactly(in, dataSize, kDataSizeBytes)) return nullptr;
        std::unique_ptr<RarBlock> block = makeBlock(type);
        if (!block) return nullptr;
        block->takeCommonFields(common);
        block->a_size = IOUtils::readUInt(dataSize);
        block->_depth = depth;
        kDiag.at().dbg("h_crc [%04x], h_type[%02x], h_flags[%04x], h_size[%04x]a_size[%08x]", block->h_crc,
                       block->h_type, block->h_flags, block->h_size, block->a_size);
        return block;
    } catch (const IOException&) {
        return nullptr;
    }
}

void RarBlock::takeCommonFields(const char* bytes) {
    h_crc = IOUtils::readUShort(bytes);
    h_type = IOUtils::readUChar(bytes + 2);
    h_flags = IOUtils::readUShort(bytes + 3);
    h_size = IOUtils::readUShort(bytes + 5);
}

// Files always do, whatever their flags say.
bool RarBlock::announcesData(int type, unsigned flags) { return type == kFile || (flags & kHasData) != 0; }

int RarBlock::headerLeft() const {
    return h_size - kCommonBytes - (announcesData(h_type, h_flags) ? kDataSizeBytes : 0);
}

RarCrc RarBlock::commonFieldsCrc() const {
    RarCrc crc;
    addField(crc, h_type);
    addField(crc, h_flags);
    addField(crc, h_size);
    if (announcesData(h_type, h_flags)) addField(crc, a_size);
    return crc;
}

bool RarBlock::continueParse(InputStream& in) {
    const int left = headerLeft();
    if (left < 0) return false;
    _rawCrc = commonFieldsCrc();
    try {
        RarHeaderStream header(&in, left, _rawCrc);
        if (!parseFields(header)) return false;
        IOUtils::skip(header);
        return true;
    } catch (const IOException&) {
        return false;
    }
}

bool RarBlock::parseFields(BoundedInputStream&) { return true; }

// Not every writer's checksum covers all of a header, and not every field is known here: either view of it will do.
bool RarBlock::crcFits() { return h_crc == getCrc() || h_crc == headerCrc(_rawCrc); }

bool RarBlock::rawCrcFits() const { return h_crc == headerCrc(_rawCrc); }

bool RarBlock::parseNested(BoundedInputStream& header) {
    if (!(h_flags & kHasNested)) return true;
    _nested = parseBlock(header, _depth + 1);
    return _nested && _nested->continueParse(header);
}

RarMarkerBlock::~RarMarkerBlock() = default;

bool RarMarkerBlock::verify() {
    // As bytes: "Rar!" 1A 07 00.
    return h_crc == 0x6152 && h_type == kMarker && h_flags == 0x1A21 && h_size == kCommonBytes;
}

int RarMarkerBlock::getCrc() { return headerCrc(commonFieldsCrc()); }

RarArchiveBlock::~RarArchiveBlock() = default;

bool RarArchiveBlock::verify() { return h_type == kArchive && crcFits(); }

int RarArchiveBlock::getCrc() {
    RarCrc crc = commonFieldsCrc();
    addField(crc, _reserved1);
    addField(crc, _reserved2);
    return headerCrc(crc);
}

bool RarArchiveBlock::parseFields(BoundedInputStream& header) {
    char fields[6];
    if (!readExactly(header, fields, sizeof fields)) return false;
    _reserved1 = IOUtils::readUShort(fields);
    _reserved2 = IOUtils::readUInt(fields + 2);
    return parseNested(header);
}

RarFileBlock::~RarFileBlock() = default;

bool RarFileBlock::verify() { return h_type == kFile && crcFits(); }

bool RarFileBlock::continueParse(InputStream& in) {
    if (isEncrypted() && !isLenient) {
        kDiag.at().dbg("RarUnarchiver: nead passwd");
        return false;
    }
    if (h_size < kFewestFileBytes) return false;
    if (isSplitBefore() && !isLenient) {
        kDiag.at().dbg("Skip this entry for LHD_SPLIT_BEFORE");
        BoundedInputStream(&in, std::int64_t{headerLeft()} + a_size).skipRest();
        return true;
    }
    return RarBlock::continueParse(in);
}

bool RarFileBlock::parseFields(BoundedInputStream& header) {
    if (!parseFixedFields(header)) return false;
    name_size = static_cast<std::uint16_t>(std::min<std::int64_t>(name_size, header.left()));
    if (!readExactly(header, _name, name_size)) return false;
    if ((h_flags & kHasSalt) && !readExactly(header, _salt, kSaltBytes)) return false;
    if ((h_flags & kHasExtendedTime) && !parseExtendedTime(header)) return false;
    return isLenient || parseNested(header);
}

bool RarFileBlock::parseFixedFields(BoundedInputStream& header) {
    std::array<char, kFewestFileBytes - kCommonBytes - kDataSizeBytes> fields;
    if (!readExactly(header, fields.data(), fields.size())) return false;
    unp_size = IOUtils::readUInt(&fields[0]);
    host_os = IOUtils::readUChar(&fields[4]);
    file_crc = IOUtils::readUInt(&fields[5]);
    ftime = IOUtils::readUInt(&fields[9]);
    unp_ver = IOUtils::readUChar(&fields[13]);
    method = IOUtils::readUChar(&fields[14]);
    name_size = IOUtils::readUShort(&fields[15]);
    attr = IOUtils::readUInt(&fields[17]);
    if (h_flags & kLargeSizes) {
        _packedSizeHigh = IOUtils::readUInt(header);
        _unpackedSizeHigh = IOUtils::readUInt(header);
    }
    return true;
}

// A group of four bits for each of the times of modification, creation, access and archiving, the first one highest:
// whether the time is there, and how many bytes refine it. The modification time itself is ftime.
bool RarFileBlock::parseExtendedTime(BoundedInputStream& header) {
    constexpr int kTimes = 4;
    const auto take = [&](int n) { return n > header.left() || readExactly(header, _extendedTime, n); };
    if (header.left() < 2) return true;
    if (!take(2)) return false;
    const unsigned groups = IOUtils::readUShort(_extendedTime.data());
    for (int i = 0; i < kTimes; ++i) {
        const unsigned group = groups >> (kTimes - 1 - i) * 4;
        if (!(group & 8)) continue;
        if (i > 0 && !take(4)) return false;
        if (!take(static_cast<int>(group & 3))) return false;
    }
    return true;
}

int RarFileBlock::getCrc() {
    RarCrc crc;
    addField(crc, h_type);
    addField(crc, h_flags);
    addField(crc, h_size);
    addField(crc, a_size);
    addField(crc, unp_size);
    addField(crc, host_os);
    addField(crc, file_crc);
    addField(crc, ftime);
    addField(crc, unp_ver);
    addField(crc, method);
    addField(crc, name_size);
    addField(crc, attr);
    if (h_flags & kLargeSizes) {
        addField(crc, _packedSizeHigh);
        addField(crc, _unpackedSizeHigh);
    }
    addText(crc, _name);
    addText(crc, _salt);
    addText(crc, _extendedTime);
    return headerCrc(crc);
}

std::int64_t RarFileBlock::packedSize() const { return joinSize(_packedSizeHigh, a_size); }

std::int64_t RarFileBlock::unpackedSize() const { return joinSize(_unpackedSizeHigh, unp_size); }

bool RarFileBlock::hasReadableData() const {
    return packedSize() >= 1 && packedSize() <= std::numeric_limits<std::int32_t>::max();
}

RarReservedBlock::~RarReservedBlock() = default;

bool RarReservedBlock::verify() { return true; }

bool RarReservedBlock::continueParse(InputStream& in) {
    if (isLenient) return RarBlock::continueParse(in);
    const int left = headerLeft();
    return left >= 0 && BoundedInputStream(&in, left).skipRest();
}

int RarReservedBlock::getCrc() { return h_crc; }

}  // namespace ZOV_SPACE
