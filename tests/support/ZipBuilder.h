// ZipBuilder: writes ZIP archives, well-formed and not: whatever a header says may differ from what follows it.
#ifndef TESTS_SUPPORT_ZIPBUILDER_H
#define TESTS_SUPPORT_ZIPBUILDER_H

#include <zlib.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>

inline std::string littleEndian(std::uint64_t value, int bytes) {
    return {reinterpret_cast<const char*>(&value), static_cast<std::size_t>(bytes)};
}

inline std::uint32_t crc32Of(const std::string& bytes) {
    return static_cast<std::uint32_t>(
        ::crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())));
}

// Deflated without header and trailer, or with those of zlib.
inline std::string deflated(const std::string& bytes, bool raw = true) {
    z_stream state{};
    if (::deflateInit2(&state, 9, Z_DEFLATED, raw ? -15 : 15, 9, Z_DEFAULT_STRATEGY) != Z_OK) {
        throw std::runtime_error("deflateInit2");
    }
    std::string packed(::deflateBound(&state, static_cast<uLong>(bytes.size())), '\0');
    state.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    state.avail_in = static_cast<uInt>(bytes.size());
    state.next_out = reinterpret_cast<Bytef*>(packed.data());
    state.avail_out = static_cast<uInt>(packed.size());
    const int result = ::deflate(&state, Z_FINISH);
    packed.resize(packed.size() - state.avail_out);
    ::deflateEnd(&state);
    if (result != Z_STREAM_END) throw std::runtime_error("deflate");
    return packed;
}

// A gzip file without a name.
inline std::string gzipOf(const std::string& content) {
    return std::string("\x1f\x8b\x08\0\0\0\0\0\0\3", 10) + deflated(content) + littleEndian(crc32Of(content), 4) +
           littleEndian(content.size(), 4);
}

// Bytes of a data descriptor.
constexpr int kNoDescriptor = 0, kPlainDescriptor = 12, kSignedDescriptor = 16;
constexpr int kLargeDescriptor = 20, kLargeSignedDescriptor = 24;  // Sizes of 8 bytes, as ZIP64 has them.

struct ZipMember {
    std::string name;
    std::string content;
    int method = 8;  // 0 and 8 pack the content accordingly, others leave it.
    int descriptor = kNoDescriptor;
    int flags = 0;  // Besides the bit that announces a descriptor.
    std::string extra = {};
    std::optional<std::string> data = {};      // Instead of the packed content.
    std::optional<std::uint32_t> packed = {};  // Said instead of the truth, and so are these:
    std::optional<std::uint32_t> unpacked = {};
    std::optional<std::uint32_t> checkSum = {};

    std::string packedData() const { return data ? *data : method == 8 ? deflated(content) : content; }
};

class ZipBuilder {
public:
    static constexpr std::uint32_t kTime = 0x5A215F3B;

    ZipBuilder(std::initializer_list<ZipMember> members = {}) {
        for (const ZipMember& member : members) add(member);
    }

    ZipBuilder& add(const ZipMember& member) { return addAs(member, member); }

    // A member of which the directory says what it would of another one.
    ZipBuilder& addAs(const ZipMember& m, const ZipMember& listed) {
        _directory += "PK\1\2" + littleEndian(20, 2) + commonOf(listed) + sumsOf(listed, 4) +
                      littleEndian(listed.name.size(), 2) + std::string(12, '\0') + littleEndian(_bytes.size(), 4) +
                      listed.name;
        ++_count;
        const bool after = m.descriptor != kNoDescriptor;
        const std::string sums = sumsOf(m, m.descriptor >= kLargeDescriptor ? 8 : 4);
        _bytes += "PK\3\4" + commonOf(m) + (after ? std::string(12, '\0') : sums) + littleEndian(m.name.size(), 2) +
                  littleEndian(m.extra.size(), 2) + m.name + m.extra + m.packedData();
        if (m.descriptor == kSignedDescriptor || m.descriptor == kLargeSignedDescriptor) _bytes += "PK\7\10";
        if (after) _bytes += sums;
        return *this;
    }

    const std::string& entries() const { return _bytes; }

    // With central directory and end record.
    std::string archive() const {
        return _bytes + _directory + "PK\5\6" + std::string(4, '\0') + littleEndian(_count, 2) +
               littleEndian(_count, 2) + littleEndian(_directory.size(), 4) + littleEndian(_bytes.size(), 4) +
               std::string(2, '\0');
    }

private:
    static std::string commonOf(const ZipMember& m) {
        const unsigned flags = static_cast<unsigned>(m.flags | (m.descriptor != kNoDescriptor ? 8 : 0));
        return littleEndian(20, 2) + littleEndian(flags, 2) + littleEndian(static_cast<unsigned>(m.method), 2) +
               littleEndian(kTime, 4);
    }
    static std::string sumsOf(const ZipMember& m, int sizeBytes) {
        const std::uint32_t packed = m.packed.value_or(static_cast<std::uint32_t>(m.packedData().size()));
        const std::uint32_t unpacked = m.unpacked.value_or(static_cast<std::uint32_t>(m.content.size()));
        return littleEndian(m.checkSum.value_or(crc32Of(m.content)), 4) + littleEndian(packed, sizeBytes) +
               littleEndian(unpacked, sizeBytes);
    }

    std::string _bytes, _directory;
    unsigned _count = 0;
};

#endif  // TESTS_SUPPORT_ZIPBUILDER_H
