// ZipSweep: a fast search for the marks of records in bytes that nothing is known of.
#ifndef PAKFOLD_ZIP_DEEP_ZIPSWEEP_H
#define PAKFOLD_ZIP_DEEP_ZIPSWEEP_H

#include <cstdint>
#include <optional>

#include "ContentBytes.h"

namespace ZOV_SPACE {

struct ZipMark {
    std::int64_t position;
    std::uint32_t signature;  // Of a local header or an end record.
};

// The first mark that begins in [from, to). Tells the scan's watch of the work.
std::optional<ZipMark> nextZipMark(ContentBytes& bytes, std::int64_t from, std::int64_t to);

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_DEEP_ZIPSWEEP_H
