// The walk is one pass over the buffer. What the last directory claims is known beforehand, sorted by position; up to
// the next claim, bytes that nothing covers are swept. A header that the sweep finds right behind a member is one of
// the archive's own; any other one has to prove itself. An end record that the sweep finds ends an archive in the
// middle, whose members have been met by then: only where its directory says something else is there more to be read.
#include "zip/deep/ZipDeepUnarchiver.h"

#include <algorithm>
#include <array>

#include "ByteOrder.h"
#include "unarchiver/ScanBudget.h"
#include "utils/Crc.h"
#include "zip/ZipConstants.h"
#include "zip/ZipDataExtent.h"
#include "zip/ZipDescriptor.h"
#include "zip/ZipSupport.h"
#include "zip/ZipTroubles.h"

namespace ZOV_SPACE {
namespace {

// What a header costs that turns out to be none, besides the bytes that were read for it.
constexpr std::int64_t kCostOfCandidate = 4096;
// Different things that records say of one member, each of which is tried.
constexpr std::size_t kMostClaimsOfOne = 256;

}  // namespace

ZipDeepUnarchiver::ZipDeepUnarchiver(BufferBase* buffer, ArchiveEntryProcessor& entries, CoveredRanges& covered)
    : _buffer(*buffer),
      _entries(entries),
      _covered(covered),
      _bytes(*buffer),
      _headers(_bytes),
      _directoryBytes(*buffer),
      _directories(_directoryBytes),
      _reader(_bytes, entries),
      _descriptors(*buffer) {}

ZipDeepUnarchiver::~ZipDeepUnarchiver() = default;

void ZipDeepUnarchiver::start() {
    _entries.beginUnarchiving();
    const std::uint32_t first = _bytes.signatureAt(0);
    const bool isMarked = first == ZipConstants::SPHSIG || first == ZipConstants::EXTSIG;
    const std::int64_t begin = isMarked ? sizeof first : 0;
    _beginsAsArchive = _bytes.signatureAt(begin) == ZipConstants::LOCSIG;
    _isSplit = _beginsAsArchive && first == ZipConstants::EXTSIG;
    if (_beginsAsArchive) _chainEnd = begin;
    _endRecord = _directories.readFromEnd(_covered);
    if (!_endRecord) _endRecord = _directories.lastEnd();
    walk();
    tellOfRest();
    _entries.endUnarchiving();
    _entries.releaseSession();
}

void ZipDeepUnarchiver::walk() {
    std::vector<ZipClaim> claims = _directories.takeClaims();
    auto next = claims.begin();
    std::int64_t position = 0;
    while (!_isTooLong) {
        const bool isLast = next == claims.end();
        const std::int64_t end = isLast ? _bytes.size() : std::min<std::int64_t>(next->headerStart, _bytes.size());
        if (const auto mark = nextArchiveMark(_bytes, kZipMarks, position, end)) {
            position = _covered.endAt(mark->position);
            if (position != mark->position) continue;
            position = std::max(mark->position + 1, meet(*mark));
            cover(mark->position, position);
            continue;
        }
        if (isLast) return;
        const std::uint32_t header = next->headerStart;
        const auto isElsewhere = [header](const ZipClaim& claim) { return claim.headerStart != header; };
        const auto behind = std::find_if(next, claims.end(), isElsewhere);
        position = std::max({position, end + 1, takeLed({next, behind})});
        cover(end, position);
        next = behind;
    }
}

// An end record in a member ends an archive in that, and so it is with what begins other archives.
void ZipDeepUnarchiver::cover(std::int64_t start, std::int64_t end) {
    if (end > start + 1) _covered.add(start, end);
    if (_endRecord && *_endRecord > start && *_endRecord < end) _endRecord.reset();
}

// What the sweep found. Returns where it covers bytes up to; 0 when it does not.
std::int64_t ZipDeepUnarchiver::meet(const ArchiveMark& mark) {
    if (mark.kind == ArchiveMark::zipEnd) {
        if (!_endRecord && mark.position + ZipConstants::ENDHDR <= _bytes.size()) _endRecord = mark.position;
        return _directories.readFrom(mark.position) ? takeLate() : 0;
    }
    const bool isEvident = mark.position == _chainEnd;
    const auto header = _headers.read(mark.position);
    if (!header && isEvident) tell(ArchiveTrouble::truncated, "the archive ends inside an entry's header");
    if (!header) return 0;
    if (!isEvident && !_headers.isPlausible(*header)) return 0;
    const std::int64_t end = takeOne(*header, isEvident);
    if (end > 0) _foundAlone.push_back(*header);
    return end;
}

// What a directory in the middle claims. Most of it was read before.
std::int64_t ZipDeepUnarchiver::takeLate() {
    std::vector<ZipClaim> claims = _directories.takeClaims();
    for (auto next = claims.begin(); next != claims.end() && !_isTooLong;) {
        const std::uint32_t header = next->headerStart;
        const auto behind =
            std::find_if(next, claims.end(), [header](const ZipClaim& c) { return c.headerStart != header; });
        takeLed({next, behind});
        next = behind;
    }
    return 0;
}

// One member, by what directories say of it and what its local header says.
std::int64_t ZipDeepUnarchiver::takeLed(std::span<ZipClaim> claims) {
    const auto header = _headers.read(claims[0].headerStart);
    if (!header && _bytes.signatureAt(claims[0].headerStart) == ZipConstants::LOCSIG) {
        tell(ArchiveTrouble::truncated, "the archive ends inside an entry's header");
        return 0;
    }
    if (!header) {
        _missed.insert(_missed.end(), claims.begin(), claims.end());
        return 0;
    }
    if (claims.size() > kMostClaimsOfOne) {
        claims = claims.first(kMostClaimsOfOne);
        _isBeyond = true;
    }
    std::vector<ZipClaim> all;
    bool isRead = false;  // In the way that the local header says, as far as it says one.
    for (ZipClaim& claim : claims) {
        claim.dataStart = header->dataStart;
        if (!claim.hasSizes()) continue;
        all.push_back(claim);
        const bool isAlike = claim.method == header->method && claim.isEncrypted() == header->isEncrypted();
        isRead = isRead || claim.agreesWith(*header) || (isAlike && !header->hasSizes() && endsAsListed(claim));
    }
    if (!isRead) all.push_back(*header);
    return all.size() == 1 ? takeOne(all[0], true) : takeEach(all);
}

// Records of either kind follow each other, so each kind has a window of its own.
std::string ZipDeepUnarchiver::nameOf(const ZipClaim& claim) {
    return claim.isLocal ? _headers.nameOf(claim) : _directories.nameOf(claim);
}

std::optional<ZipDescriptor> ZipDeepUnarchiver::descriptorAt(std::int64_t position) {
    std::array<char, ZipDescriptor::kLookAhead> bytes{};
    const std::span<const char> there = _bytes.at(position, bytes.size());
    std::copy(there.begin(), there.end(), bytes.begin());
    return ZipDescriptor::read(bytes.data());
}

// Whether a reader that goes by the data's own end, or by the descriptor, gets what the directory says.
bool ZipDeepUnarchiver::endsAsListed(const ZipClaim& claim) {
    if (endsItself(claim.method)) return true;
    const auto descriptor = descriptorAt(claim.dataEnd());
    return descriptor && descriptor->isEvident && descriptor->packedSize == claim.packedSize &&
           descriptor->unpackedSize == claim.unpackedSize;
}

// A member that only one record, or several in the same way, tell of.
std::int64_t ZipDeepUnarchiver::takeOne(const ZipClaim& claim, bool isEvident) {
    if (claim.isEncrypted()) return isNew(ZipReading::of(claim)) ? passOverEncrypted(claim) : 0;
    const bool isStoredTwice = claim.method == ZipConstants::STORED && claim.packedSize != claim.unpackedSize;
    if (isEvident && claim.hasSizes()) {
        if (isStoredTwice) return takeEach({claim});
        return isNew(ZipReading::of(claim)) ? readOne(claim, nullptr) : coveredBy(claim, claim.dataEnd());
    }
    if (!isNew(ZipReading::of(claim))) return 0;
    ZipDataExtent extent;
    if (!isEvident && !provesItself(claim, extent)) return 0;
    if (!extent.known && !claim.hasSizes()) extent = measure(claim);
    if (!extent.known) return readOne(claim, nullptr);
    ZipClaim measured = claim;
    measured.packedSize = ZipClaim::clamped(static_cast<std::uint64_t>(extent.packedSize));
    if (!claim.hasSizes()) {
        measured.unpackedSize = ZipClaim::clamped(static_cast<std::uint64_t>(extent.unpackedSize));
        measured.checkSum = extent.checkSum;
    }
    return readOne(measured, &extent);
}

std::int64_t ZipDeepUnarchiver::passOverEncrypted(const ZipClaim& claim) {
    const std::string name = nameOf(claim);
    tell(ArchiveTrouble::encrypted, zipTroubles::kEncrypted, &name);
    ZipDataExtent extent;
    if (!claim.hasSizes()) extent = findForeignExtent(_buffer, static_cast<long>(claim.dataStart));
    if (!extent.failure.empty()) {
        tell(ArchiveTrouble::damaged, extent.failure, &name);
        return 0;
    }
    const std::int64_t end = extent.known ? claim.dataStart + extent.packedSize : claim.dataEnd();
    if (end > _bytes.size()) tell(ArchiveTrouble::truncated, zipTroubles::kCut, &name);
    return coveredBy(claim, end);
}

ZipDataExtent ZipDeepUnarchiver::measure(const ZipClaim& claim) {
    const auto start = static_cast<long>(claim.dataStart);
    if (claim.method == ZipConstants::DEFLATED) return findDeflatedExtent(_buffer, start, _descriptors);
    if (claim.method == ZipConstants::STORED) return findStoredOrOddExtent(_buffer, start);
    return findForeignExtent(_buffer, start);
}

// Whether the data of a header that nothing leads to comes out right. What was inflated for that is kept in `extent`.
bool ZipDeepUnarchiver::provesItself(const ZipClaim& claim, ZipDataExtent& extent) {
    const bool isArchive = _beginsAsArchive || _endRecord;
    std::string failure;
    if (claim.method == ZipConstants::STORED && claim.hasSizes()) {
        ScanBudget::chargeDiscardedBytes(claim.packedSize);
        Iso3309Crc checkSum;
        constexpr std::int64_t kPiece = 65536;
        for (std::int64_t at = claim.dataStart; at < claim.dataEnd();) {
            const auto wanted = static_cast<std::size_t>(std::min(kPiece, claim.dataEnd() - at));
            const std::span<const char> piece = _bytes.at(at, wanted);
            if (piece.empty()) break;
            checkSum.add(piece.data(), static_cast<unsigned>(piece.size()));
            at += static_cast<std::int64_t>(piece.size());
        }
        if (checkSum.crc() != claim.checkSum) failure = "the check-sum of the data is wrong";
    } else if (claim.method == ZipConstants::DEFLATED || !claim.hasSizes()) {
        extent = measure(claim);
        failure = extent.failure;
        const bool isCharged = claim.method != ZipConstants::DEFLATED;
        if (!isCharged && !failure.empty()) {
            ScanBudget::chargeDiscardedBytes(std::max(extent.inflated, extent.packedSize));
        }
    }
    if (failure.empty()) return true;
    ScanBudget::chargeDiscardedBytes(kCostOfCandidate);
    const std::string name = nameOf(claim);
    if (isArchive) tell(ArchiveTrouble::damaged, failure, &name);
    return false;
}

// The one reading of a member.
std::int64_t ZipDeepUnarchiver::readOne(const ZipClaim& claim, const ZipDataExtent* measured) {
    const std::string name = nameOf(claim);
    const ZipOutcome outcome = _reader.read(claim, name, ZipReading::of(claim), measured);
    const bool isCut = claim.dataEnd() > _bytes.size();
    if (!outcome.isWhole()) {
        std::int64_t end = 0;
        if (isRetried(claim, outcome, end)) return end;
        tell(zipTroubles::of(outcome.failure), outcome.failure, &name);
        if (!measured && !isCut) coveredBy(claim, claim.dataEnd());  // Where another member would begin.
        return 0;
    }
    readBeginnings({&claim, 1}, ZipReading::of(claim), outcome);
    return coveredBy(claim, outcome.dataEnd);
}

// Data that goes on behind the size that is given: readers who do not go by that get all of it.
bool ZipDeepUnarchiver::isRetried(const ZipClaim& claim, const ZipOutcome& failed, std::int64_t& end) {
    const bool isShort = zipTroubles::of(failed.failure) == ArchiveTrouble::truncated && endsItself(claim.method);
    if (!isShort || claim.dataEnd() >= _bytes.size()) return false;
    ZipReading longest = ZipReading::of(claim);
    longest.packedSize = static_cast<std::uint32_t>(_bytes.size() - claim.dataStart);
    if (!isNew(longest)) return false;
    const ZipOutcome outcome = _reader.readQuietly(claim, nameOf(claim), longest);
    if (!outcome.fits(claim)) return false;
    end = coveredBy(claim, outcome.dataEnd);
    return true;
}

// A member of which records say different things.
std::int64_t ZipDeepUnarchiver::takeEach(const std::vector<ZipClaim>& claims) {
    const std::string name = nameOf(claims[0]);
    const auto isEncrypted = [](const ZipClaim& claim) { return claim.isEncrypted(); };
    if (std::any_of(claims.begin(), claims.end(), isEncrypted)) {
        tell(ArchiveTrouble::encrypted, zipTroubles::kEncrypted, &name);
    }
    std::int64_t covered = 0;
    // Without any way left to try, all that there is to tell has been told.
    bool isAnyTried = false, isSettled = false;
    const ZipWays ways = waysOf(claims);
    for (const ZipWay& way : ways.all()) {
        if (!isNew(way.reading)) {
            isSettled = true;
            continue;
        }
        isAnyTried = true;
        const ZipOutcome outcome = _reader.readQuietly(*way.claim, nameOf(*way.claim), way.reading);
        if (!outcome.isWhole()) {
            isSettled = true;
            tell(zipTroubles::of(outcome.failure), outcome.failure, &name);
            continue;
        }
        const auto fits = [&](const ZipClaim& claim) { return outcome.fits(claim); };
        isSettled = isSettled || std::any_of(claims.begin(), claims.end(), fits);
        covered = covered == 0 ? outcome.dataEnd : std::min(covered, outcome.dataEnd);
        if (endsItself(way.reading.method)) readBeginnings(claims, way.reading, outcome);
    }
    if (isAnyTried && !isSettled) {
        tell(ArchiveTrouble::damaged, "what is unpacked fits none of the sizes and check-sums that are given", &name);
    }
    return covered == 0 ? 0 : coveredBy(claims[0], covered);
}

ZipWays ZipDeepUnarchiver::waysOf(const std::vector<ZipClaim>& claims) {
    ZipWays ways(_bytes.size());
    const auto addSized = [&](const ZipClaim& claim, const ZipClaim& sizes) {
        if (claim.isEncrypted() || !sizes.hasSizes()) return;
        ways.add(claim, sizes.packedSize);
        if (claim.method == ZipConstants::STORED) ways.add(claim, sizes.unpackedSize);
    };
    for (const ZipClaim& claim : claims) {
        addSized(claim, claim);
        if (claim.isEncrypted() || claim.hasSizes()) continue;
        const ZipDataExtent extent = measure(claim);
        if (extent.failure.empty() || endsItself(claim.method)) {
            ways.add(claim, ZipClaim::clamped(static_cast<std::uint64_t>(extent.packedSize)));
        } else {
            const std::string name = nameOf(claim);
            tell(ArchiveTrouble::damaged, extent.failure, &name);
        }
    }
    // Then readers take the method from the header, which stands last, and the sizes from the directory.
    const ZipClaim& header = claims.back();
    for (const ZipClaim& claim : claims) {
        if (!header.hasSizes()) addSized(header, claim);
    }
    return ways;
}

// Some readers stop where the announced size is reached.
void ZipDeepUnarchiver::readBeginnings(std::span<const ZipClaim> claims, const ZipReading& whole,
                                       const ZipOutcome& outcome) {
    for (const ZipClaim& claim : claims) {
        ZipReading beginning = whole;
        beginning.keptSize = claim.unpackedSize;
        const bool isShorter = claim.unpackedSize > 0 && claim.unpackedSize < outcome.unpackedSize;
        if (outcome.isTaken && isShorter && isNew(beginning)) {
            _reader.readQuietly(claim, nameOf(claim), beginning);
        }
    }
}

// Whether this is no repetition. Ends the walk when there are more readings than can be remembered.
bool ZipDeepUnarchiver::isNew(const ZipReading& reading) {
    ScanBudget::worked(0);
    if (_readings.size() == kMostReadings) _isTooLong = true;
    return !_isTooLong && _readings.insert(reading).second;
}

// Up to where the member reaches whose data ends there: a descriptor may follow. 0 for data that is cut off.
std::int64_t ZipDeepUnarchiver::coveredBy(const ZipClaim& claim, std::int64_t dataEnd) {
    if (dataEnd > _bytes.size()) return 0;
    std::int64_t end = dataEnd;
    const auto header = _headers.read(claim.headerStart);
    if (header && header->sizesFollow()) {
        const auto descriptor = descriptorAt(end);
        if (descriptor && descriptor->isEvident) end += descriptor->length;
    }
    _chainEnd = end;
    return end;
}

// Members that are not where a directory has them, and that were not found elsewhere, either.
std::int64_t ZipDeepUnarchiver::countMissed() {
    const auto before = [](const ZipClaim& a, const ZipClaim& b) { return a.contentOrder() < b.contentOrder(); };
    std::sort(_foundAlone.begin(), _foundAlone.end(), before);
    return std::count_if(_missed.begin(), _missed.end(), [&](const ZipClaim& missed) {
        return !std::binary_search(_foundAlone.begin(), _foundAlone.end(), missed, before);
    });
}

void ZipDeepUnarchiver::tellOfRest() {
    const std::int64_t missed = std::max(countMissed(), _directories.missing());
    if (missed > 0) tell(ArchiveTrouble::damaged, zipTroubles::missed(missed));
    if (_isTooLong || _isBeyond || _directories.isTooLong()) {
        tell(ArchiveTrouble::spent, "there are more entries than can be compared");
    }
    if (_chainEnd >= 0 && _bytes.signatureAt(_chainEnd) == kArchiveExtraData) {
        tell(ArchiveTrouble::encrypted, "the directory is encrypted");
    }
    if (_directories.spansVolumes() || (_isSplit && !_endRecord)) {
        tell(ArchiveTrouble::otherVolume, "the archive spans several volumes");
    } else if (_beginsAsArchive && !_endRecord) {
        tell(ArchiveTrouble::truncated, "the archive ends without an end record");
    }
}

void ZipDeepUnarchiver::tell(ArchiveTrouble what, const std::string& text, const std::string* name) const {
    _entries.trouble(what, name, text);
}

}  // namespace ZOV_SPACE
