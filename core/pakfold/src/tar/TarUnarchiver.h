// TarUnarchiver: tar archives of any generation, as tolerant as the most tolerant reader.
#ifndef PAKFOLD_TAR_TARUNARCHIVER_H
#define PAKFOLD_TAR_TARUNARCHIVER_H

#include <cstdint>
#include <memory>
#include <string>

#include "ContentBytes.h"
#include "CoveredRanges.h"
#include "tar/TarExtensions.h"
#include "tar/TarHeader.h"
#include "unarchiver/Pakfold.h"
#include "unarchiver/ProbedContent.h"

namespace ZOV_SPACE {

// Walks one buffer front to back. All is borrowed. Throws what OfferedEntry does.
//
// - Behind the records that end an archive, another one may begin.
// - A record that is no header where one has to be is told, and the next one that is ends the search.
// - Sparse files are offered with their holes; where the map of these makes no sense, as the bytes that there are.
// - Entries that have no data by their type have some when the next header shows it.
class TarUnarchiver : public Unarchiver {
public:
    TarUnarchiver(BufferBase* buffer, ArchiveEntryProcessor& entries, CoveredRanges& covered);

    // Whether the content begins as an archive, or as one whose first headers were damaged. `isHeld`: as in
    // DeepFormat.
    static bool isIn(ProbedContent& probed, bool isHeld);

    void start() override;

private:
    struct Content;

    void walk();
    void meetOther(std::span<const char> record);
    std::int64_t take(TarHeader header, std::int64_t dataStart);
    std::int64_t readExtension(const TarHeader& header, std::int64_t dataStart);
    std::int64_t readSparseRecords(std::int64_t position);
    bool hasData(const TarHeader& header, std::int64_t dataStart);
    bool isHeaderAt(std::int64_t position);
    std::int64_t behindData(std::int64_t dataStart, std::int64_t size) const;
    Content contentOf(const TarHeader& header, std::int64_t dataStart);
    void offer(const TarHeader& header, const Content& content);
    void tell(ArchiveTrouble what, const std::string& text, const std::string* name = nullptr) const;

    ArchiveEntryProcessor& _entries;
    CoveredRanges& _covered;
    ContentBytes _bytes;
    std::optional<std::int64_t> _sizeOfAll;  // By a header for all entries that follow.
    TarExtensions _extensions;               // Of the next entry.
    bool _isEnded = false;                   // Behind records that end an archive.
    bool _isLost = false;                    // Told already.
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_TAR_TARUNARCHIVER_H
