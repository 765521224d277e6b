#include "zip/ZipCentralDir.h"

#include <algorithm>
#include <array>
#include <span>
#include <vector>

#include "ByteOrder.h"
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
    in.skip(long{nameLength} - kept);
    readExtra(in, word(ZipConstants::CENEXT));
    in.skip(word(ZipConstants::CENCOM));
    return true;
}

// Of the extra field only what ZIP64 keeps there counts: what is all ones in the record, in this order.
void ZipCentralDir::readExtra(InputStream& in, int length) {
    constexpr std::uint64_t kElsewhere = 0xFFFFFFFF;
    constexpr std::size_t kLargeNumber = 8;  // Bytes.
    const std::array numbers{&uncompressedSize, &compressedSize, &headerOffset};
    const auto isElsewhere = [](const std::uint64_t* number) { return *number == kElsewhere; };
    if (std::none_of(numbers.begin(), numbers.end(), isElsewhere)) {
        in.skip(length);
        return;
    }
    std::vector<unsigned char> extra(static_cast<std::size_t>(length));
    const int count = IOUtils::readFull(in, reinterpret_cast<char*>(extra.data()), length);
    std::span<const unsigned char> block =
        zip64Block(std::span(extra).first(static_cast<std::size_t>(std::max(count, 0))));
    for (std::uint64_t* const number : numbers) {
        if (!isElsewhere(number)) continue;
        if (block.size() < kLargeNumber) return;
        *number = loadU64(block.data());
        block = block.subspan(kLargeNumber);
    }
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
