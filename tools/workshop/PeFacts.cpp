#include "PeFacts.h"

#include <algorithm>
#include <limits>
#include <string_view>

#include "VoleUtil.h"
#include "io/IOBuffer.h"

namespace {

constexpr unsigned kMostSections = 256;  // A record's parameter is one byte.

// The headers were read before, so what cannot be read any more is no name.
std::string nameOf(ZOV_SPACE::BufferBase& content, std::uint64_t header) {
    constexpr int kNameBytes = 8;
    char name[kNameBytes];
    if (header > std::numeric_limits<std::int32_t>::max()) return {};
    const int count = std::max(content.read(static_cast<long>(header), name, kNameBytes), 0);
    const std::string_view text(name, static_cast<std::size_t>(count));
    return std::string(text.substr(0, text.find_last_not_of('\0') + 1));
}

PeSection sectionOf(const _SECTION& section, std::string name) {
    return {std::move(name), section.VirtualAddress, section.VirtualSize, section.PointerToRawData,
            section.SizeOfRawData};
}

}  // namespace

std::optional<PeFacts> peFactsOf(ZOV_SPACE::BufferBase& content) {
    ZOV_SPACE::IOBuffer cursor(&content);
    if (!VoleUtil::checkPeFile(&cursor)) return std::nullopt;
    PeInfo2 info;
    PeFacts facts;
    if (VoleUtil::getPeInfo(&cursor, &info) == 0) facts.entry = info.entryRaw;
    facts.sectionCount = info.sectionCount;
    for (unsigned i = 0; i < std::min<unsigned>(info.sectionCount, kMostSections); ++i) {
        const std::uint64_t header = info.sectionTable + std::uint64_t{i} * PeInfo2::kSectionHeaderSize;
        facts.sections.push_back(sectionOf(info.sections[i], nameOf(content, header)));
    }
    return facts;
}
