// Numbers alone would not do: an entry that only the directory knows can lie within another one's data, and one that it
// does not know makes up for it. So entries are compared by the positions of their headers. The directory gives those
// from the start of its archive, which need not be that of the source, or from that of the source; what the directory's
// own position is beside the one that the end record has tells the difference (APPNOTE.TXT, "offset of start of central
// directory").
#include "zip/ZipCoverage.h"

#include <algorithm>

namespace ZOV_SPACE {
namespace {

// What does not fit is told by ZIP64 records.
constexpr std::uint32_t kOffsetElsewhere = 0xFFFFFFFF;
constexpr unsigned kNumberElsewhere = 0xFFFF;

bool isOtherVolume(unsigned disk) { return disk != 0 && disk != kNumberElsewhere; }

}  // namespace

bool ZipCoverage::wasMet(std::int64_t headerStart) const {
    return std::binary_search(_met.begin(), _met.end(), headerStart);
}

void ZipCoverage::compare(const ZipInfo& info, std::int64_t start, bool hasEnd) {
    const std::int64_t shift =
        hasEnd && info.end.directoryOffset != kOffsetElsewhere ? start - std::int64_t{info.end.directoryOffset} : 0;
    std::int64_t missed = 0;
    for (const auto& entry : info.centralDirs) {
        if (isOtherVolume(entry->disk)) {
            _spansVolumes = true;
        } else if (entry->headerOffset != kOffsetElsewhere && !wasMet(entry->headerOffset) &&
                   !wasMet(entry->headerOffset + shift)) {
            ++missed;
        }
    }
    if (hasEnd) {
        const bool isElsewhere = info.end.entryCount == kNumberElsewhere;
        const std::size_t known = info.centralDirs.empty() ? _met.size() - _metBefore : info.centralDirs.size();
        if (!isElsewhere && info.end.entryCount > known)
            missed += info.end.entryCount - static_cast<std::int64_t>(known);
        if (isOtherVolume(info.end.disk) || isOtherVolume(info.end.directoryDisk)) _spansVolumes = true;
    }
    _hasEnd = _hasEnd || hasEnd;
    _isComplete = missed == 0 && (hasEnd || !info.centralDirs.empty());
    _missed = std::max(_missed, missed);
    _metBefore = _met.size();
}

}  // namespace ZOV_SPACE
