// Numbers alone would not do: an entry that only the directory knows can lie within another one's data, and one that it
// does not know makes up for it. So entries are compared by the positions of their headers. The directory gives those
// from the start of its archive, which need not be that of the source, or from that of the source.
//
// Nor would positions: most readers take an entry's sizes and method from the directory, and would get something else
// out of it than the walk did where the local header says otherwise.
#include "zip/ZipCoverage.h"

#include <algorithm>
#include <array>
#include <limits>

#include "ByteOrder.h"
#include "zip/ZipConstants.h"

namespace ZOV_SPACE {
namespace {

constexpr unsigned kNumberElsewhere = 0xFFFF;  // It does not fit, and is told by ZIP64 records.

bool isOtherVolume(unsigned disk) { return disk != 0 && disk != kNumberElsewhere; }

// One that was not met lies within another entry's data.
bool isHeaderAt(BufferBase* source, std::int64_t position) {
    std::array<char, 4> bytes{};
    if (!source || position < 0 || position >= source->getSize()) return false;
    return source->read(static_cast<long>(position), bytes.data(), bytes.size()) == bytes.size() &&
           loadU32(bytes.data()) == ZipConstants::LOCSIG;
}

bool sameSize(std::uint32_t read, std::uint64_t listed) {
    constexpr std::uint32_t kNotToBeHad = 0xFFFFFFFF;  // In the header: no size that could be used.
    constexpr std::uint64_t kLargest = std::numeric_limits<std::int32_t>::max();
    return listed == kNotToBeHad || listed == read || (read == kNotToBeHad && listed > kLargest);
}

}  // namespace

void ZipCoverage::meet(std::int64_t headerStart) {
    if (_met.size() < kMostEntries) {
        _met.push_back({headerStart, {}, false});
    } else {
        ++_metBeyond;
        _isTooLong = true;
    }
}

void ZipCoverage::takeBack() { _metBeyond > 0 ? static_cast<void>(--_metBeyond) : _met.pop_back(); }

void ZipCoverage::describe(const Reading& reading) {
    if (_metBeyond > 0) return;
    _met.back().reading = reading;
    _met.back().isDescribed = true;
}

void ZipCoverage::meetEnd(const ZipEndCentralDir& end) {
    if (isOtherVolume(end.disk) || isOtherVolume(end.directoryDisk)) _spansVolumes = true;
    _hasEnd = true;
}

void ZipCoverage::list(const ZipCentralDir& entry) {
    constexpr unsigned kEncrypted = 0x0001;
    constexpr std::uint64_t kFurthest = std::numeric_limits<std::uint32_t>::max();  // Beyond any source.
    const bool isElsewhere = isOtherVolume(entry.disk);
    _spansVolumes = _spansVolumes || isElsewhere;
    if (_listed.size() < kMostEntries) {
        _listed.push_back({static_cast<std::int64_t>(std::min(entry.headerOffset, kFurthest)), entry.compressedSize,
                           entry.uncompressedSize, entry.method, (entry.flags & kEncrypted) != 0, isElsewhere});
    } else {
        _isTooLong = true;
    }
}

const ZipCoverage::Met* ZipCoverage::metAt(std::int64_t headerStart) const {
    const auto found = std::lower_bound(_met.begin(), _met.end(), headerStart,
                                        [](const Met& met, std::int64_t start) { return met.headerStart < start; });
    return found != _met.end() && found->headerStart == headerStart ? &*found : nullptr;
}

bool ZipCoverage::agree(const Met& met, const Listed& listed) {
    if (!met.isDescribed) return true;
    return sameSize(met.reading.packedSize, listed.packedSize) &&
           sameSize(met.reading.unpackedSize, listed.unpackedSize) && met.reading.method == listed.method &&
           !listed.isEncrypted;
}

void ZipCoverage::compare(std::int64_t shift, const ZipEndCentralDir* end, BufferBase* source) {
    std::int64_t missed = 0, contradicted = 0;
    for (const Listed& entry : _listed) {
        if (entry.isElsewhere) continue;
        const Met* const shifted = metAt(entry.headerOffset + shift);
        const Met* const met = shifted ? shifted : metAt(entry.headerOffset);
        const bool isHidden = !shifted && shift != 0 && isHeaderAt(source, entry.headerOffset + shift);
        if (!met || isHidden) {
            ++missed;
        } else if (!agree(*met, entry)) {
            ++contradicted;
        }
    }
    if (end) {
        const std::size_t known = _listed.empty() ? _met.size() - _metBefore : _listed.size();
        const bool isElsewhere = end->entryCount == kNumberElsewhere;
        if (!isElsewhere && end->entryCount > known) missed += end->entryCount - static_cast<std::int64_t>(known);
    }
    _isComplete = missed == 0 && (end || !_listed.empty());
    _missed = std::max(_missed, missed);
    _contradicted = std::max(_contradicted, contradicted);
    _metBefore = _met.size();
}

}  // namespace ZOV_SPACE
