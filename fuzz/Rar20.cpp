#include "RarEntries.h"
#include "Target.h"

namespace {

const Target target("rar20", [](std::string_view input) { unpackEntries(input, 20); });

}  // namespace
