// LZ and PPM blocks, and filters in either.
#include "RarEntries.h"
#include "Target.h"

namespace {

const Target target("rar29", [](std::string_view input) { unpackEntries(input, 29); });

}  // namespace
