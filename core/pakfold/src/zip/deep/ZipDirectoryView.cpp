#include "zip/deep/ZipDirectoryView.h"

#include <algorithm>
#include <string>
#include <tuple>

#include "ArchiveMarks.h"
#include "ByteOrder.h"
#include "zip/ZipConstants.h"

namespace ZOV_SPACE {
namespace {

constexpr std::int64_t kLargeEndBytes = 56, kLocatorBytes = 20;
constexpr std::uint32_t kLocator = 0x07064B50;
constexpr unsigned kShortElsewhere = 0xFFFF;  // It does not fit, and is told by ZIP64's records.

bool isOtherVolume(unsigned disk) { return disk != 0 && disk != kShortElsewhere; }

auto orderOf(const ZipClaim& claim) {
    return std::tie(claim.headerStart, claim.method, claim.packedSize, claim.unpackedSize, claim.checkSum, claim.flags,
                    claim.nameStart);
}

bool isSame(const ZipClaim& a, const ZipClaim& b) { return a.headerStart == b.headerStart && a.agreesWith(b); }

}  // namespace

std::optional<std::int64_t> ZipDirectoryView::readFromEnd(const CoveredRanges& elsewhere) {
    constexpr std::int64_t kFirstPiece = 16384;  // Comments are rare, and long ones are rarer.
    const std::int64_t start = std::max<std::int64_t>(_bytes.size() - kSweptAtEnd, 0);
    std::optional<std::int64_t> empty;
    std::int64_t end = _bytes.size();
    for (std::int64_t piece = kFirstPiece; end > start; piece = kSweptAtEnd) {
        const std::int64_t begin = std::max(end - piece, start);
        const std::vector<std::int64_t> found = endsIn(begin, end);
        for (auto last = found.rbegin(); last != found.rend(); ++last) {
            if (elsewhere.has(*last) || !readFrom(*last)) continue;
            if (!_claims.empty() || _spansVolumes) return *last;
            if (!empty) empty = *last;
        }
        end = begin;
    }
    return empty;
}

// Where end records begin, in ascending order.
std::vector<std::int64_t> ZipDirectoryView::endsIn(std::int64_t from, std::int64_t to) {
    std::vector<std::int64_t> ends;
    while (const auto mark = nextArchiveMark(_bytes, ArchiveMark::zipEnd, from, to)) {
        ends.push_back(mark->position);
        from = mark->position + 1;
    }
    return ends;
}

std::string ZipDirectoryView::nameOf(const ZipClaim& claim) {
    const std::span<const char> name = _bytes.at(claim.nameStart, claim.nameLength);
    return {name.begin(), name.end()};
}

bool ZipDirectoryView::readFrom(std::int64_t endRecord) {
    const std::span<const char> bytes = _bytes.at(endRecord, ZipConstants::ENDHDR);
    if (bytes.size() < ZipConstants::ENDHDR || loadU32(bytes.data()) != ZipConstants::ENDSIG) return false;
    const auto word = [&](int offset) { return loadU16(&bytes[static_cast<std::size_t>(offset)]); };
    const bool isElsewhere = isOtherVolume(word(ZipConstants::ENDDSK)) || isOtherVolume(word(ZipConstants::ENDSRT));
    const End end{word(ZipConstants::ENDTOT), loadU32(&bytes[ZipConstants::ENDSIZ]),
                  loadU32(&bytes[ZipConstants::ENDOFF]), endRecord};
    const auto large = largeEndAt(endRecord);
    std::uint64_t found = readByPlaces(end);
    std::uint64_t counted = end.entryCount;
    if (large) {
        found = std::max(found, readByPlaces(*large));
        if (counted == kShortElsewhere) counted = large->entryCount;
    }
    const bool isEmpty = counted == 0 && end.directorySize == 0 && !large;
    if (isElsewhere) {
        _spansVolumes = _spansVolumes || found > 0 || endRecord + ZipConstants::ENDHDR == _bytes.size();
        return _spansVolumes;
    }
    _lastEnd = std::max(_lastEnd.value_or(endRecord), endRecord);
    const bool isCounted = counted != kShortElsewhere && counted > found && !_isTooLong;
    std::int64_t& missing = found > 0 ? _missing : _countedInVain;
    if (isCounted) missing = std::max<std::int64_t>(missing, ZipClaim::clamped(counted - found));
    return found > 0 || isEmpty;
}

// The larger end record: where the locator in front of the plain one says, or right in front of that.
std::optional<ZipDirectoryView::End> ZipDirectoryView::largeEndAt(std::int64_t position) {
    const std::span<const char> locator = _bytes.at(position - kLocatorBytes, kLocatorBytes);
    if (locator.size() < kLocatorBytes || loadU32(locator.data()) != kLocator) return std::nullopt;
    const auto said = static_cast<std::int64_t>(ZipClaim::clamped(loadU64(&locator[8])));
    for (const std::int64_t start : {position - kLocatorBytes - kLargeEndBytes, said}) {
        const std::span<const char> bytes = _bytes.at(start, kLargeEndBytes);
        if (bytes.size() < kLargeEndBytes || loadU32(bytes.data()) != kZip64End) continue;
        return End{loadU64(&bytes[32]), loadU64(&bytes[40]), loadU64(&bytes[48]), start};
    }
    return std::nullopt;
}

// How many records the longest directory has that the end record may mean.
std::uint64_t ZipDirectoryView::readByPlaces(const End& end) {
    const auto last = static_cast<std::uint64_t>(end.directoryEnd);
    std::uint64_t most = 0;
    const auto read = [&](std::uint64_t start) {
        if (end.directoryOffset > last) return;
        const auto shift = static_cast<std::int64_t>(start) - static_cast<std::int64_t>(end.directoryOffset);
        most = std::max(most, readDirectory(static_cast<std::int64_t>(start), shift));
    };
    if (end.directorySize <= last) read(last - end.directorySize);
    if (end.directorySize > last || last - end.directorySize != end.directoryOffset) read(end.directoryOffset);
    return most;
}

std::uint64_t ZipDirectoryView::readDirectory(std::int64_t start, std::int64_t shift) {
    if (_bytes.signatureAt(start) != ZipConstants::CENSIG) return 0;
    const auto [read, isNew] = _read.emplace(std::pair(start, shift), 0);
    std::uint64_t& count = read->second;
    for (std::int64_t position = start; isNew; ++count) {
        const auto record = readRecord(position);
        if (!record) break;
        if (_records == kMostClaims) {
            _isTooLong = true;
            break;
        }
        ++_records;
        if (!record->isElsewhere) claim(*record, shift);
    }
    return count;
}

// Moves behind the record. Nothing when none, or no whole one, is there.
std::optional<ZipDirectoryView::Record> ZipDirectoryView::readRecord(std::int64_t& position) {
    const std::span<const char> bytes = _bytes.at(position, ZipConstants::CENHDR);
    if (bytes.size() < ZipConstants::CENHDR || loadU32(bytes.data()) != ZipConstants::CENSIG) return std::nullopt;
    const char* const record = bytes.data();
    ZipClaim claim;
    claim.flags = loadU16(record + ZipConstants::CENFLG);
    claim.method = loadU16(record + ZipConstants::CENHOW);
    claim.time = loadU32(record + ZipConstants::CENTIM);
    claim.checkSum = loadU32(record + ZipConstants::CENCRC);
    claim.packedSize = loadU32(record + ZipConstants::CENSIZ);
    claim.unpackedSize = loadU32(record + ZipConstants::CENLEN);
    claim.nameLength = loadU16(record + ZipConstants::CENNAM);
    claim.nameStart = static_cast<std::uint32_t>(position + ZipConstants::CENHDR);
    std::uint32_t offset = loadU32(record + ZipConstants::CENOFF);
    const unsigned extraLength = loadU16(record + ZipConstants::CENEXT);
    const unsigned commentLength = loadU16(record + ZipConstants::CENCOM);
    const bool isElsewhere = isOtherVolume(loadU16(record + ZipConstants::CENDSK));
    _spansVolumes = _spansVolumes || isElsewhere;
    const std::int64_t extraStart = std::int64_t{claim.nameStart} + claim.nameLength;
    if (extraStart > _bytes.size()) return std::nullopt;
    if (ZipClaim::kNotSaid == std::max({claim.packedSize, claim.unpackedSize, offset})) {
        const std::span<const char> extra = _bytes.at(extraStart, extraLength);
        ZipClaim::takeLarge({reinterpret_cast<const unsigned char*>(extra.data()), extra.size()}, claim.unpackedSize,
                            claim.packedSize, offset);
    }
    position = extraStart + extraLength + commentLength;
    return Record{claim, offset, isElsewhere};
}

// The offset counts from the archive's start, or from the buffer's, where another archive may be.
void ZipDirectoryView::claim(const Record& record, std::int64_t shift) {
    const std::int64_t unshifted = record.headerOffset, shifted = unshifted + shift;
    const auto isHeader = [this](std::int64_t at) { return _bytes.signatureAt(at) == ZipConstants::LOCSIG; };
    const auto add = [&](std::int64_t at) {
        _claims.push_back(record.claim);
        _claims.back().headerStart = ZipClaim::clamped(static_cast<std::uint64_t>(at));
    };
    const bool isUnshifted = shift != 0 && isHeader(unshifted);
    const bool isShifted = !isUnshifted || isHeader(shifted);
    if (isShifted) add(shifted);
    if (isUnshifted && (!isShifted || isOfHeader(record.claim, unshifted))) add(unshifted);
}

// Whether a record has the name that a local header has.
bool ZipDirectoryView::isOfHeader(const ZipClaim& record, std::int64_t header) {
    const std::span<const char> length = _bytes.at(header + ZipConstants::LOCNAM, sizeof record.nameLength);
    if (length.size() < sizeof record.nameLength || loadU16(length.data()) != record.nameLength) return false;
    const std::span<const char> there = _bytes.at(header + ZipConstants::LOCHDR, record.nameLength);
    const std::string name(there.begin(), there.end());
    const std::span<const char> listed = _bytes.at(record.nameStart, record.nameLength);
    return std::equal(name.begin(), name.end(), listed.begin(), listed.end());
}

std::vector<ZipClaim> ZipDirectoryView::takeClaims() {
    std::vector<ZipClaim> claims;
    claims.swap(_claims);
    const auto before = [](const ZipClaim& a, const ZipClaim& b) { return orderOf(a) < orderOf(b); };
    if (!std::is_sorted(claims.begin(), claims.end(), before)) std::sort(claims.begin(), claims.end(), before);
    claims.erase(std::unique(claims.begin(), claims.end(), isSame), claims.end());
    return claims;
}

}  // namespace ZOV_SPACE
