// RarMarks: where RAR archives may begin in a content.
#ifndef PAKFOLD_RAR_DEEP_RARMARKS_H
#define PAKFOLD_RAR_DEEP_RARMARKS_H

#include <cstdint>
#include <optional>

#include "ContentBytes.h"

namespace ZOV_SPACE {

struct RarMark {
    static constexpr std::int64_t kBytes = 7, kBytesOf5 = 8;

    std::int64_t position;
    bool isRar5;

    std::int64_t end() const { return position + (isRar5 ? kBytesOf5 : kBytes); }
};

// The first mark that begins in [from, to). Tells the scan's watch of the work.
std::optional<RarMark> nextRarMark(ContentBytes& bytes, std::int64_t from, std::int64_t to);

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_DEEP_RARMARKS_H
