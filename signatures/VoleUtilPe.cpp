// Reading of PE headers, as Microsoft's "PE Format" describes them: a DOS header names the place of the NT headers;
// those consist of a signature, a file header with the number of sections, and an optional header whose size the file
// header tells; the section table follows it. An address is placed in the file by the first section that holds it.
//
// Nothing in them is trusted: positions are 64 bits wide, and every read goes through a source that refuses what lies
// outside of the file.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <new>

#include "Exception.h"
#include "VoleUtil.h"
#include "io/IOBuffer.h"

namespace {

// The DOS header, at position 0.
constexpr int kDosHeaderSize = 64;
constexpr int kNewHeaderField = 0x3C;             // e_lfanew: position of the NT headers.
constexpr std::uint16_t kMagic = 0x5A4D;          // "MZ"
constexpr std::uint16_t kMagicReversed = 0x4D5A;  // "ZM"

// The NT headers: signature, file header, and as much of the optional header as every PE file has.
constexpr int kNtHeadersSize = 248;
constexpr std::uint32_t kNtSignature = 0x00004550;  // "PE", two zero bytes
constexpr int kNumberOfSections = 6;
constexpr int kSizeOfOptionalHeader = 20;
constexpr int kOptionalHeader = 24;
constexpr int kAddressOfEntryPoint = 40;

// A section header.
constexpr int kSectionHeaderSize = PeInfo2::kSectionHeaderSize;
constexpr int kVirtualSize = 8;
constexpr int kVirtualAddress = 12;
constexpr int kSizeOfRawData = 16;
constexpr int kPointerToRawData = 20;
constexpr int kHeadersPerRead = 64;

constexpr std::uint32_t kFileAlignment = 512;

class Source {
public:
    virtual ~Source() = default;
    // False unless all n bytes were read. Does not throw.
    virtual bool read(std::uint64_t position, char* buf, int n) = 0;

    // Whether something was not to be had that the file, as large as it says it is, should give.
    bool failed() const { return _failed; }
    void fail() { _failed = true; }

private:
    bool _failed = false;
};

class BufferSource final : public Source {
public:
    explicit BufferSource(ZOV_SPACE::IOBuffer* buffer) : _buffer(buffer) {}

    bool read(std::uint64_t position, char* buf, int n) override {
        if (!_buffer) return false;
        try {
            const long size = _buffer->getSize();
            // A seek() cuts what it is given to a long, so nothing beyond the content may reach it.
            if (size < 0 || position > static_cast<std::uint64_t>(size)) return false;
            _buffer->seek(SEEK_SET, static_cast<long>(position));
            const int got = VoleUtil::readn(_buffer, buf, n);
            if (got < std::min<long>(n, size - static_cast<long>(position))) fail();
            return got == n;
        } catch (const ZOV_SPACE::Exception&) {
            fail();
        } catch (const std::exception&) {
            fail();
        }
        return false;
    }

private:
    ZOV_SPACE::IOBuffer* _buffer;
};

class DescriptorSource final : public Source {
public:
    explicit DescriptorSource(int fd) : _fd(fd) {}
    bool read(std::uint64_t position, char* buf, int n) override {
        return VoleUtil::readnAt(_fd, buf, n, static_cast<std::int64_t>(position)) == n;
    }

private:
    int _fd;
};

// Position of the NT headers; 0 when there is no DOS header that names one.
std::uint32_t findNtHeaders(Source& source) {
    char header[kDosHeaderSize];
    if (!source.read(0, header, sizeof header)) return 0;
    const std::uint16_t magic = ZOV_SPACE::loadU16(header);
    if (magic != kMagic && magic != kMagicReversed) return 0;
    return ZOV_SPACE::loadU32(header + kNewHeaderField);
}

bool isPeFile(Source& source) {
    char signature[sizeof kNtSignature];
    const std::uint32_t ntHeaders = findNtHeaders(source);
    return ntHeaders != 0 && source.read(ntHeaders, signature, sizeof signature) &&
           ZOV_SPACE::loadU32(signature) == kNtSignature;
}

_SECTION* makeRoom(PeInfo2& info, std::uint16_t count) {
    if (count <= PeInfo2::kInlineSections) return info.inlineSections;
    info.heapSections.reset(new (std::nothrow) _SECTION[count]);
    return info.heapSections.get();
}

void storeSection(_SECTION& section, const char* header) {
    section.VirtualAddress = ZOV_SPACE::loadU32(header + kVirtualAddress);
    section.VirtualSize = ZOV_SPACE::loadU32(header + kVirtualSize);
    section.PointerToRawData = ZOV_SPACE::loadU32(header + kPointerToRawData);
    section.SizeOfRawData = ZOV_SPACE::loadU32(header + kSizeOfRawData);
}

bool readSections(Source& source, std::uint64_t position, _SECTION* sections, int count) {
    char headers[kHeadersPerRead * kSectionHeaderSize];
    for (int done = 0; done < count;) {
        const int batch = std::min(count - done, kHeadersPerRead);
        if (!source.read(position, headers, batch * kSectionHeaderSize)) return false;
        for (int i = 0; i < batch; ++i) storeSection(sections[done + i], headers + i * kSectionHeaderSize);
        done += batch;
        position += static_cast<std::uint64_t>(batch) * kSectionHeaderSize;
    }
    return true;
}

// Fills the section table of `info` from the one at `position`.
bool readSectionTable(Source& source, std::uint64_t position, std::uint16_t count, PeInfo2& info) {
    // The count is only a claim: nothing is allocated for it unless the file has the last byte of such a table.
    char last;
    const std::uint64_t tableSize = std::uint64_t{count} * kSectionHeaderSize;
    if (count > PeInfo2::kInlineSections && !source.read(position + tableSize - 1, &last, 1)) return false;

    _SECTION* sections = makeRoom(info, count);
    if (!sections) source.fail();
    if (!sections || !readSections(source, position, sections, count)) return false;

    // Kept as is: the first section only, and its size only when others follow. Signatures count on these positions.
    if (count > 0) sections[0].PointerToRawData = VoleUtil::alignDown(sections[0].PointerToRawData, kFileAlignment);
    if (count > 1) sections[0].SizeOfRawData = VoleUtil::alignUp(sections[0].SizeOfRawData, kFileAlignment);
    info.sections = sections;
    info.sectionTable = position;
    info.sectionCount = count;
    return true;
}

int readPeInfo(Source& source, PeInfo2* info) {
    if (!info) return -1;
    info->heapSections.reset();
    info->sections = nullptr;
    info->sectionCount = 0;
    info->entryRaw = PeInfo2::kNoEntry;

    char header[kNtHeadersSize];
    const std::uint32_t ntHeaders = findNtHeaders(source);
    if (ntHeaders == 0 || !source.read(ntHeaders, header, sizeof header)) return -1;
    if (ZOV_SPACE::loadU32(header) != kNtSignature) return -1;

    const std::uint64_t table =
        std::uint64_t{ntHeaders} + kOptionalHeader + ZOV_SPACE::loadU16(header + kSizeOfOptionalHeader);
    if (!readSectionTable(source, table, ZOV_SPACE::loadU16(header + kNumberOfSections), *info)) return -1;

    const std::uint32_t entryPoint = ZOV_SPACE::loadU32(header + kAddressOfEntryPoint);
    info->entryRaw = VoleUtil::getRawAddr(entryPoint, info->sections, info->sectionCount);
    return info->entryRaw == PeInfo2::kNoEntry ? -1 : 0;
}

}  // namespace

bool VoleUtil::checkPeFile(ZOV_SPACE::IOBuffer* buffer, bool* failed) {
    BufferSource source(buffer);
    const bool isPe = isPeFile(source);
    if (failed && source.failed()) *failed = true;
    return isPe;
}

bool VoleUtil::checkPeFile(int fd) {
    DescriptorSource source(fd);
    return isPeFile(source);
}

int VoleUtil::getPeInfo(ZOV_SPACE::IOBuffer* buffer, PeInfo2* info, bool* failed) {
    BufferSource source(buffer);
    const int result = readPeInfo(source, info);
    if (failed && source.failed()) *failed = true;
    return result;
}

int VoleUtil::getPeInfo(int fd, PeInfo2* info) {
    DescriptorSource source(fd);
    return readPeInfo(source, info);
}

std::uint32_t VoleUtil::getRawAddr(std::uint32_t rva, const _SECTION* sections, std::uint16_t count) {
    if (!sections || count == 0) return PeInfo2::kNoEntry;
    for (const _SECTION* section = sections; section != sections + count; ++section) {
        const std::uint64_t end = std::uint64_t{section->VirtualAddress} + section->SizeOfRawData;
        if (rva < section->VirtualAddress || rva >= end) continue;
        const std::uint64_t raw = std::uint64_t{rva} - section->VirtualAddress + section->PointerToRawData;
        return raw < PeInfo2::kNoEntry ? static_cast<std::uint32_t>(raw) : PeInfo2::kNoEntry;
    }
    return rva < sections[0].VirtualAddress ? rva : PeInfo2::kNoEntry;
}
