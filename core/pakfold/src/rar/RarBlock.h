// RarBlock: the blocks that a RAR archive of the formats 1.5 to 2.9 consists of.
//
// A block is a header, followed by data when the header says so. Every header begins with the same fields, little
// endian, and goes on as its type asks:
//
//     0  2  h_crc     low half of the CRC-32 of the header from h_type on
//     2  1  h_type
//     3  2  h_flags
//     5  2  h_size    of the whole header
//     7  4  a_size    of the data; only there in file blocks, and when h_flags has kHasData
//
// Headers are read as far as h_size says, whatever of it is known here, because that is where others look for what
// follows. Nothing of a header is trusted; a CRC that does not fit is for the caller to judge.
#ifndef PAKFOLD_RAR_RARBLOCK_H
#define PAKFOLD_RAR_RARBLOCK_H

#include <cstdint>
#include <memory>
#include <string>

#include "EntryStreams.h"
#include "utils/Crc.h"

namespace ZOV_SPACE {

class RarBlock {
public:
    static constexpr int kMarker = 0x72;
    static constexpr int kArchive = 0x73;
    static constexpr int kFile = 0x74;
    static constexpr int kFirstReserved = 0x75;
    static constexpr int kService = 0x7A;  // Of the reserved ones; its check-sum covers all of the header, and so does
    static constexpr int kEnd = 0x7B;      // that of this one.
    static constexpr int kLastReserved = kEnd;

    static constexpr unsigned kHasData = 0x8000;
    // Of archive and file blocks. Kept as is: in a file block the published meaning is "continued in the next volume".
    static constexpr unsigned kHasNested = 0x0002;
    static constexpr std::int64_t kFewestBytes = 7;  // Of any block.
    static constexpr int kMostNested = 8;            // Blocks within each other below the outermost.

    // Reads the fields that all headers have. Null at the end of the archive: when they cannot be read, or when the
    // type is unknown. `depth` is the number of blocks around this one.
    static std::unique_ptr<RarBlock> parseBlock(InputStream& in, int depth = 0);

    RarBlock(const RarBlock&) = delete;
    RarBlock& operator=(const RarBlock&) = delete;
    virtual ~RarBlock();

    virtual bool verify() = 0;                    // Whether the block is sound; after continueParse().
    virtual bool continueParse(InputStream& in);  // Reads the rest of the header. False when that fails.
    virtual int getCrc() = 0;                     // What h_crc should be, over the fields as they were understood.
    bool rawCrcFits() const;                      // Likewise over all of the header, as far as that was read in full.

    // Moves over the data. False when the stream ends before.
    bool skipData(InputStream& in) const { return BoundedInputStream(&in, a_size).skipRest(); }

    // Headers are read that the format's readers refuse or pass over: of entries that are encrypted or come from
    // another volume, or go on in one; kHasNested means that there. For continueParse().
    bool isLenient = false;

    std::uint16_t h_crc = 0;
    std::uint8_t h_type = 0;
    std::uint16_t h_flags = 0;
    std::uint16_t h_size = 0;
    std::uint32_t a_size = 0;

protected:
    RarBlock() = default;

    // Reads what a type adds to the header, which `header` ends with. False when that fails.
    virtual bool parseFields(BoundedInputStream& header);

    int headerLeft() const;  // Bytes of the header behind the common fields; negative when h_size lies.
    RarCrc commonFieldsCrc() const;
    bool crcFits();
    // Reads a block within this one's header, when h_flags says that there is one. False when that fails.
    bool parseNested(BoundedInputStream& header);

private:
    static bool announcesData(int type, unsigned flags);
    void takeCommonFields(const char* bytes);

    RarCrc _rawCrc;  // Over the header's bytes from h_type on.
    int _depth = 0;
    std::unique_ptr<RarBlock> _nested;
};

class RarMarkerBlock : public RarBlock {
public:
    ~RarMarkerBlock() override;

    bool verify() override;
    int getCrc() override;
};

class RarArchiveBlock : public RarBlock {
public:
    static constexpr unsigned kVolume = 0x0001;
    static constexpr unsigned kEncryptedHeaders = 0x0080;  // Of all blocks behind this one.
    static constexpr unsigned kSolid = 0x0008;             // The entries build on each other, from the first one on.

    ~RarArchiveBlock() override;

    bool verify() override;
    int getCrc() override;
    bool isSolid() const { return h_flags & kSolid; }
    bool isVolume() const { return h_flags & kVolume; }

protected:
    bool parseFields(BoundedInputStream& header) override;

private:
    std::uint16_t _reserved1 = 0;
    std::uint32_t _reserved2 = 0;
};

class RarFileBlock : public RarBlock {
public:
    static constexpr unsigned kSplitBefore = 0x0001;  // Continued from the previous volume.
    static constexpr unsigned kSplitAfter = 0x0002;   // Continued in the next volume.
    static constexpr unsigned kEncrypted = 0x0004;
    static constexpr unsigned kSolid = 0x0010;   // Builds on the entries before it.
    static constexpr unsigned kFolder = 0x00E0;  // All of these. The other values are sizes of windows.
    static constexpr unsigned kLargeSizes = 0x0100;
    static constexpr unsigned kHasSalt = 0x0400;
    static constexpr unsigned kHasExtendedTime = 0x1000;
    static constexpr int kStored = 0x30;  // The method of entries that are not compressed.

    ~RarFileBlock() override;

    bool verify() override;
    // Of an entry that is continued from the previous volume the data is skipped, too.
    bool continueParse(InputStream& in) override;
    int getCrc() override;

    bool isEncrypted() const { return h_flags & kEncrypted; }
    bool isSplitAfter() const { return h_flags & kSplitAfter; }
    bool isSplitBefore() const { return h_flags & kSplitBefore; }
    bool isSolid() const { return h_flags & kSolid; }
    bool isFolder() const { return (h_flags & kFolder) == kFolder; }
    bool isStored() const { return method == kStored; }
    std::int64_t packedSize() const;
    std::int64_t unpackedSize() const;
    // Whether there is data that can be read; sizes from 2 GiB on are not.
    bool hasReadableData() const;
    const std::string& rawName() const { return _name; }

    std::uint32_t unp_size = 0;
    std::uint8_t host_os = 0;
    std::uint32_t file_crc = 0;  // CRC-32 of the unpacked data.
    std::uint32_t ftime = 0;     // MS-DOS date and time.
    std::uint8_t unp_ver = 0;    // Version needed to unpack, times ten.
    std::uint8_t method = 0;
    std::uint16_t name_size = 0;
    std::uint32_t attr = 0;

protected:
    bool parseFields(BoundedInputStream& header) override;

private:
    bool parseFixedFields(BoundedInputStream& header);
    bool parseExtendedTime(BoundedInputStream& header);

    std::uint32_t _packedSizeHigh = 0;
    std::uint32_t _unpackedSizeHigh = 0;
    std::string _name;
    std::string _salt;
    std::string _extendedTime;
};

// Comments, signatures, recovery records and whatever else is passed over.
class RarReservedBlock : public RarBlock {
public:
    static constexpr unsigned kNextVolume = 0x0001;  // Of the end block: another volume follows.

    ~RarReservedBlock() override;

    bool verify() override;
    bool continueParse(InputStream& in) override;
    int getCrc() override;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_RARBLOCK_H
