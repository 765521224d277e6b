// ZipDirectoryView: what central directories claim, wherever end records lead to them: by the size or by the offset
// that the record gives, by those of ZIP64's records, from the start of the archive or from that of the buffer. An
// archive needs not begin where the buffer does, and readers do not agree on what they go by.
//
// Each directory is read once, and of all of them together at most kMostClaims records. Used by one thread at a time.
#ifndef PAKFOLD_ZIP_DEEP_ZIPDIRECTORYVIEW_H
#define PAKFOLD_ZIP_DEEP_ZIPDIRECTORYVIEW_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ContentBytes.h"
#include "CoveredRanges.h"
#include "zip/deep/ZipClaim.h"

namespace ZOV_SPACE {

class ZipDirectoryView {
public:
    static constexpr std::size_t kMostClaims = std::size_t{1} << 20;
    explicit ZipDirectoryView(ContentBytes& bytes) : _bytes(bytes) {}

    // Reads from the last end record that leads to a directory. Its position, or that of the last one of an archive
    // without members, or nothing when the buffer does not end with an archive. Records elsewhere are passed over.
    std::optional<std::int64_t> readFromEnd(const CoveredRanges& elsewhere = {});
    // From the end record at a position. False when there is none, or it leads nowhere.
    bool readFrom(std::int64_t endRecord);

    // What has been claimed since they were taken last, by the positions of the headers, the same thing only once.
    std::vector<ZipClaim> takeClaims();
    std::string nameOf(const ZipClaim& claim);  // Of one of those.

    std::optional<std::int64_t> lastEnd() const { return _lastEnd; }  // An end record, whatever it leads to.
    // Members that an end record counts and that no directory has.
    std::int64_t missing() const { return _records == 0 ? _countedInVain : _missing; }
    bool spansVolumes() const { return _spansVolumes; }
    bool isTooLong() const { return _isTooLong; }  // There are records that were not read.

private:
    struct End {
        std::uint64_t entryCount;
        std::uint64_t directorySize;
        std::uint64_t directoryOffset;
        std::int64_t directoryEnd;  // Where the first of the end records begins.
    };

    std::vector<std::int64_t> endsIn(std::int64_t from, std::int64_t to);
    std::optional<End> largeEndAt(std::int64_t position);
    std::uint64_t readByPlaces(const End& end);
    std::uint64_t readDirectory(std::int64_t start, std::int64_t shift);
    struct Record {
        ZipClaim claim;
        std::uint32_t headerOffset;
        bool isElsewhere;  // Its member is in another volume.
    };
    std::optional<Record> readRecord(std::int64_t& position);
    void claim(const Record& record, std::int64_t shift);
    bool isOfHeader(const ZipClaim& record, std::int64_t header);

    ContentBytes& _bytes;
    std::vector<ZipClaim> _claims;
    // The directories that were read, by where they begin and their shift: how many records they have.
    std::map<std::pair<std::int64_t, std::int64_t>, std::uint64_t> _read;
    std::size_t _records = 0;
    std::int64_t _missing = 0;
    std::int64_t _countedInVain = 0;  // By end records that lead nowhere.
    std::optional<std::int64_t> _lastEnd;
    bool _spansVolumes = false;
    bool _isTooLong = false;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_DEEP_ZIPDIRECTORYVIEW_H
