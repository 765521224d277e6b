// RarBuilder: writes RAR archives of the formats 1.5 to 2.9, block by block; well-formed unless a field says otherwise.
// The data of entries is written as given: the builder compresses nothing.
#ifndef TESTS_SUPPORT_RARBUILDER_H
#define TESTS_SUPPORT_RARBUILDER_H

#include <cstdint>
#include <optional>
#include <string>

#include "utils/Crc.h"

namespace ZOV_SPACE {

struct RarFile {
    std::string name;
    std::string data;  // As packed.
    unsigned flags = 0;
    bool hasDataFlag = true;  // The packed size is there without it, too.
    unsigned method = 0x30;
    unsigned unpVer = 20;
    std::uint32_t time = 0x2D6A8C61;
    std::uint32_t attr = 0x20;
    std::uint32_t fileCrc = 0x12345678;
    std::string salt;              // Eight bytes, with flag 0x0400.
    std::string extendedTime;      // With flag 0x1000.
    std::string extra;             // At the end of the header.
    std::uint32_t packedHigh = 0;  // With flag 0x0100, like the next.
    std::uint32_t unpackedHigh = 0;
    std::optional<std::uint32_t> packedSize;    // Otherwise that of the data.
    std::optional<std::uint32_t> unpackedSize;  // Likewise.
    std::optional<unsigned> nameSize;           // What the header claims.
    std::optional<unsigned> headerSize;         // Likewise.
    bool extraInCrc = true;                     // Of the header.
    bool broken = false;                        // The header's CRC is wrong.
};

class RarBuilder {
public:
    static constexpr unsigned kHasData = 0x8000;

    static std::string marker() { return {"Rar!\x1A\x07\0", 7}; }

    // A block of any type. The CRC covers the first `crcBytes` bytes from the type on; all of the header when 0.
    static std::string block(unsigned type, unsigned flags, const std::string& fields, const std::string& data = "",
                             std::optional<unsigned> headerSize = {}, unsigned crcBytes = 0,
                             std::optional<std::uint32_t> dataSize = {}) {
        const bool hasData = (flags & kHasData) || type == 0x74;
        const std::size_t size = 7 + (hasData ? 4 : 0) + fields.size();
        std::string header = number(type, 1) + number(flags, 2) + number(headerSize.value_or(size), 2);
        if (hasData) header += number(dataSize.value_or(data.size()), 4);
        header += fields;
        Iso3309Crc crc;
        crc.add(header.data(), crcBytes ? crcBytes : static_cast<unsigned>(header.size()));
        return number(crc.crc() & 0xFFFF, 2) + header + data;
    }

    // The archive header; `nested` is a block within it, which writers leave out of the CRC.
    static std::string archive(unsigned flags = 0, const std::string& nested = "") {
        return block(0x73, flags, std::string(6, '\0') + nested, "", {}, 11);
    }

    static std::string file(const RarFile& file) {
        const std::size_t unpacked = file.unpackedSize.value_or(file.data.size());
        std::string fields = number(unpacked, 4) + number(2, 1) + number(file.fileCrc, 4) + number(file.time, 4) +
                             number(file.unpVer, 1) + number(file.method, 1) +
                             number(file.nameSize.value_or(file.name.size()), 2) + number(file.attr, 4);
        if (file.flags & 0x0100) fields += number(file.packedHigh, 4) + number(file.unpackedHigh, 4);
        fields += file.name + file.salt + file.extendedTime + file.extra;
        const std::size_t known = 9 + fields.size() - (file.extraInCrc ? 0 : file.extra.size());
        std::string bytes = block(0x74, file.flags | (file.hasDataFlag ? kHasData : 0), fields, file.data,
                                  file.headerSize, static_cast<unsigned>(known), file.packedSize);
        if (file.broken) bytes[0] = static_cast<char>(bytes[0] ^ 0x5A);
        return bytes;
    }

    // A compressed entry.
    static std::string packed(const std::string& name, const std::string& data, std::size_t unpackedSize,
                              unsigned version, bool solid = false) {
        RarFile entry;
        entry.name = name, entry.data = data, entry.flags = solid ? 0x0010 : 0;
        entry.method = 0x33, entry.unpVer = version;
        entry.unpackedSize = static_cast<std::uint32_t>(unpackedSize);
        return file(entry);
    }

    // A stored entry without anything special.
    static std::string stored(const std::string& name, const std::string& data, unsigned flags = 0) {
        RarFile entry;
        entry.name = name, entry.data = data, entry.flags = flags;
        return file(entry);
    }

    static std::string end() { return block(0x7B, 0x4000, ""); }

    // The low `bytes` bytes of the value, lowest first.
    static std::string number(std::uint64_t value, int bytes) {
        std::string text;
        for (; bytes > 0; --bytes, value >>= 8) text += static_cast<char>(value & 0xFF);
        return text;
    }
};

}  // namespace ZOV_SPACE

#endif  // TESTS_SUPPORT_RARBUILDER_H
