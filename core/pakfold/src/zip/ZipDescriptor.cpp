#include "zip/ZipDescriptor.h"

#include "ByteOrder.h"
#include "zip/ZipConstants.h"
#include "zip/ZipSupport.h"

namespace ZOV_SPACE {

std::optional<ZipDescriptor> ZipDescriptor::read(const char* bytes) {
    const std::uint32_t first = loadU32(bytes);
    if (startsRecord(first)) return std::nullopt;
    const int start = first == ZipConstants::EXTSIG ? ZipConstants::EXTCRC : 0;
    const char* const fields = bytes + start;
    const bool smallIsFollowed = startsRecord(loadU32(fields + 12));
    // No entry that can be unpacked has anything in the upper halves.
    const bool upperHalvesEmpty = loadU32(fields + 8) == 0 && loadU32(fields + 16) == 0;
    const bool isLarge = !smallIsFollowed && upperHalvesEmpty && startsRecord(loadU32(fields + 20));
    return ZipDescriptor{loadU32(fields), loadU32(fields + 4), loadU32(fields + (isLarge ? 12 : 8)),
                         start + (isLarge ? 20 : 12), start != 0 || smallIsFollowed || isLarge};
}

}  // namespace ZOV_SPACE
