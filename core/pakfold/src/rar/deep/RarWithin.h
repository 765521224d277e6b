// Whether RAR archives can be expected in a content.
#ifndef PAKFOLD_RAR_DEEP_RARWITHIN_H
#define PAKFOLD_RAR_DEEP_RARWITHIN_H

#include <cstdint>
#include <optional>

#include "io/BufferBase.h"

namespace ZOV_SPACE {

// Where the first archive begins within the content's first 1 MiB, or that behind a program's own end. Throws what the
// buffer throws.
std::optional<std::int64_t> findRarWithin(BufferBase& content);

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_DEEP_RARWITHIN_H
