// ArchiveMarks: a fast search for the letters with which archives, and parts of them, begin, in bytes that nothing is
// known of. One pass finds all kinds, because nearly every content is looked through for all of them.
#ifndef PAKFOLD_ARCHIVEMARKS_H
#define PAKFOLD_ARCHIVEMARKS_H

#include <cstdint>
#include <optional>

#include "ContentBytes.h"

namespace ZOV_SPACE {

struct ArchiveMark {
    // ZIP's: of a local header, of an end record.
    enum Kind : unsigned { zipHeader = 1, zipEnd = 2, rar = 4, rar5 = 8, sevenZip = 16, cabinet = 32 };

    std::int64_t position;
    Kind kind;

    std::int64_t end() const;
};

constexpr unsigned kZipMarks = ArchiveMark::zipHeader | ArchiveMark::zipEnd;
constexpr unsigned kRarMarks = ArchiveMark::rar | ArchiveMark::rar5;
constexpr unsigned kAllMarks = kZipMarks | kRarMarks | ArchiveMark::sevenZip | ArchiveMark::cabinet;

// Bytes at the beginning of a content that begins as something else, and at the end, where archives are looked for. A
// ZIP archive's comment has 65535 at most, but some readers look further.
constexpr std::int64_t kSweptAtBegin = std::int64_t{1} << 20, kSweptAtEnd = std::int64_t{1} << 17;

// The first mark of some kinds that begins in [from, to). Tells the scan's watch of the work.
std::optional<ArchiveMark> nextArchiveMark(ContentBytes& bytes, unsigned kinds, std::int64_t from, std::int64_t to);

// The kinds that begin in [from, to).
unsigned archiveMarksIn(ContentBytes& bytes, std::int64_t from, std::int64_t to);

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ARCHIVEMARKS_H
