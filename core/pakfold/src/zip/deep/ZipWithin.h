// Whether members of ZIP archives can be expected in a content that begins as something else.
#ifndef PAKFOLD_ZIP_DEEP_ZIPWITHIN_H
#define PAKFOLD_ZIP_DEEP_ZIPWITHIN_H

#include <cstdint>

#include "io/BufferBase.h"

namespace ZOV_SPACE {

enum class ZipWithin {
    nothing,
    header,   // A plausible local header stands where unpackers may look for one.
    archive,  // The content ends as an archive that has members.
};

struct ZipFound {
    ZipWithin what;
    std::int64_t begin;  // Of the first member that was found; the content's size when there is none.
};

// Looks at the content's beginning and end, and at what is behind an executable's own bytes. Throws what the buffer
// throws.
ZipFound findZipWithin(BufferBase& content);

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_DEEP_ZIPWITHIN_H
