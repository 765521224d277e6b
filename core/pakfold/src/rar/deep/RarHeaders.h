// RarHeaders: reads headers of RAR blocks at any position of a content, and finds those of entries and archives where
// nothing leads to them.
//
// Headers that turn out to be none are charged to the scan's budget. The content is borrowed. Used by one thread at a
// time.
#ifndef PAKFOLD_RAR_DEEP_RARHEADERS_H
#define PAKFOLD_RAR_DEEP_RARHEADERS_H

#include <cstdint>
#include <memory>
#include <optional>

#include "ArchiveMarks.h"
#include "ContentBytes.h"
#include "rar/RarBlock.h"

namespace ZOV_SPACE {

struct RarHeader {
    std::unique_ptr<RarBlock> block;  // Null when none of a known type begins there.
    std::int64_t start = 0;
    std::int64_t dataStart = 0;
    bool isWhole = false;
    bool isSound = false;  // Its check-sum holds.

    bool is(int type) const { return isWhole && block->h_type == type; }
    std::int64_t dataSize() const;
    // Behind the data; no further than the content's size.
    std::int64_t end(std::int64_t contentSize) const;
};

class RarHeaders {
public:
    explicit RarHeaders(ContentBytes& bytes) : _bytes(bytes) {}

    RarHeader read(std::int64_t position);
    // The first header of an entry in [from, to) whose fields make sense and whose check-sum holds.
    std::optional<std::int64_t> nextEntry(std::int64_t from, std::int64_t to);
    // Where the first block behind the mark is, if an archive begins with that: an archive header whose check-sum
    // holds, or, where that is damaged, the first sound entry. Other contents have marks, too. Of RAR 5, the mark's
    // end.
    std::optional<std::int64_t> archiveAt(const ArchiveMark& mark);
    // The first mark in [from, to) with which an archive begins.
    std::optional<ArchiveMark> nextArchive(std::int64_t from, std::int64_t to);

private:
    bool isRar5At(std::int64_t position);

    ContentBytes& _bytes;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_DEEP_RARHEADERS_H
