#include "zip/ZipCentralDir.h"

#include <algorithm>
#include <array>

#include "IOUtils.h"
#include "zip/ZipConstants.h"
#include "zip/ZipSupport.h"

namespace ZOV_SPACE {

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
    disk = word(ZipConstants::CENDSK);
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

}  // namespace ZOV_SPACE
