#include <algorithm>
#include <array>

#include "ByteOrder.h"
#include "IOUtils.h"
#include "zip/ZipConstants.h"
#include "zip/ZipInfo.h"
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

bool ZipCentralDir::read(InputStream& in) {
    std::array<char, ZipConstants::CENHDR> header;
    if (IOUtils::readFull(in, header.data(), ZipConstants::CENHDR) < ZipConstants::CENHDR) return false;
    if (IOUtils::readUInt(header.data()) != ZipConstants::CENSIG) return false;
    const auto word = [&](int offset) { return IOUtils::readUShort(header.data() + offset); };
    const auto number = [&](int offset) { return IOUtils::readUInt(header.data() + offset); };
    flags = word(ZipConstants::CENFLG);
    method = word(ZipConstants::CENHOW);
    checkSum = number(ZipConstants::CENCRC);
    compressedSize = number(ZipConstants::CENSIZ);
    uncompressedSize = number(ZipConstants::CENLEN);
    headerOffset = number(ZipConstants::CENOFF);
    const int nameLength = word(ZipConstants::CENNAM);
    if (nameLength == 0) kZipUnit.raise<ArchivingException>("empty file name in central directory");

    const int kept = std::min(nameLength, ZipConstants::MAXNAMELENGTH);
    name.resize(static_cast<std::size_t>(kept));
    if (IOUtils::readFull(in, name.data(), kept) < kept) return false;
    in.skip(long{nameLength} - kept + word(ZipConstants::CENEXT) + word(ZipConstants::CENCOM));
    return true;
}

std::unique_ptr<ZipCentralDir> ZipCentralDir::getNextDir(InputStream& in, int left) {
    if (left == 0) return nullptr;
    in.mark(ZipConstants::CENHDR);
    auto entry = std::make_unique<ZipCentralDir>();
    if (entry->read(in)) return entry;
    in.reset();
    return nullptr;
}

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

bool ZipEndCentralDir::read(InputStream& in) {
    std::array<char, ZipConstants::ENDHDR> record;
    if (IOUtils::readFull(in, record.data(), ZipConstants::ENDHDR) < ZipConstants::ENDHDR) return false;
    if (IOUtils::readUInt(record.data()) != ZipConstants::ENDSIG) return false;
    entryCount = IOUtils::readUShort(&record[ZipConstants::ENDTOT]);
    directorySize = IOUtils::readUInt(&record[ZipConstants::ENDSIZ]);
    directoryOffset = IOUtils::readUInt(&record[ZipConstants::ENDOFF]);
    commentLength = IOUtils::readUShort(&record[ZipConstants::ENDCOM]);
    return true;
}

}  // namespace ZOV_SPACE
