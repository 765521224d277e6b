// ZipDeepUnarchiver: ZIP archives as any unpacker may read them, wherever they are in a content.
//
// Members come from three views: what directories claim (ZipDirectoryView), the local headers that follow each other,
// and a sweep for local headers and end records through all bytes that no member covers (ZipSweep). Where records
// disagree about a member, each reading of its data is decoded (ZipReading); readings that agree are decoded once.
#ifndef PAKFOLD_ZIP_DEEP_ZIPDEEPUNARCHIVER_H
#define PAKFOLD_ZIP_DEEP_ZIPDEEPUNARCHIVER_H

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "ArchiveMarks.h"
#include "ContentBytes.h"
#include "CoveredRanges.h"
#include "unarchiver/Pakfold.h"
#include "zip/DescriptorFinder.h"
#include "zip/ZipDescriptor.h"
#include "zip/deep/ZipClaim.h"
#include "zip/deep/ZipDirectoryView.h"
#include "zip/deep/ZipHeaderView.h"
#include "zip/deep/ZipReading.h"
#include "zip/deep/ZipWays.h"

namespace ZOV_SPACE {

// Walks one buffer, in the order of the local headers; members that only a directory in the middle knows come when the
// walk meets its end record. All that is given is borrowed.
//
// - Bytes of a member that could be decoded are the member's business: an archive in them is met when the member itself
//   is scanned.
// - A local header that neither a directory nor the member before leads to has to be plausible in all its fields, and
//   its data to come out right, before it is offered: other contents have such marks, too.
// - The processor is told of all that some record claims and that cannot be decoded.
// - Every byte is swept once. Looking for the end of data, and candidates that come to nothing, are charged to the
// scan's
//   budget; so is all that is decoded.
//   Throws:  as ZipUnarchiver, but nothing for damage: the walk goes on behind it.
class ZipDeepUnarchiver : public Unarchiver {
public:
    static constexpr std::size_t kMostReadings = std::size_t{1} << 20;

    // What other archives of the content cover is passed over, and what members cover is added.
    ZipDeepUnarchiver(BufferBase* buffer, ArchiveEntryProcessor& entries, CoveredRanges& covered);
    ~ZipDeepUnarchiver() override;

    void start() override;

private:
    void walk();
    void cover(std::int64_t start, std::int64_t end);
    std::int64_t meet(const ArchiveMark& mark);
    std::int64_t takeLed(std::span<ZipClaim> claims);
    std::int64_t takeLate();
    std::int64_t takeOne(const ZipClaim& claim, bool isEvident);
    std::int64_t passOverEncrypted(const ZipClaim& claim);
    std::int64_t readOne(const ZipClaim& claim, const ZipDataExtent* measured);
    bool isRetried(const ZipClaim& claim, const ZipOutcome& failed, std::int64_t& end);
    std::int64_t takeEach(const std::vector<ZipClaim>& claims);
    ZipWays waysOf(const std::vector<ZipClaim>& claims);
    void readBeginnings(std::span<const ZipClaim> claims, const ZipReading& whole, const ZipOutcome& outcome);
    bool provesItself(const ZipClaim& claim, ZipDataExtent& extent);
    std::string nameOf(const ZipClaim& claim);
    std::optional<ZipDescriptor> descriptorAt(std::int64_t position);
    bool endsAsListed(const ZipClaim& claim);
    ZipDataExtent measure(const ZipClaim& claim);
    bool isNew(const ZipReading& reading);
    std::int64_t coveredBy(const ZipClaim& claim, std::int64_t dataEnd);
    std::int64_t countMissed();
    void tellOfRest();
    void tell(ArchiveTrouble what, const std::string& text, const std::string* name = nullptr) const;

    BufferBase& _buffer;
    ArchiveEntryProcessor& _entries;
    CoveredRanges& _covered;
    ContentBytes _bytes;
    ZipHeaderView _headers;
    ContentBytes _directoryBytes;
    ZipDirectoryView _directories;
    ZipReader _reader;
    DescriptorFinder _descriptors;
    std::set<ZipReading> _readings;          // That were decoded, or tried.
    std::optional<std::int64_t> _endRecord;  // The last one, or one that leads to a directory.
    std::int64_t _chainEnd = -1;             // Behind the latest member: where another one needs no other evidence.
    std::vector<ZipClaim> _missed;           // What directories claim where no header is.
    std::vector<ZipClaim> _foundAlone;       // Members that no directory led to.
    bool _beginsAsArchive = false;
    bool _isSplit = false;
    bool _isTooLong = false;
    bool _isBeyond = false;  // Not all claims of some member were tried.
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_DEEP_ZIPDEEPUNARCHIVER_H
