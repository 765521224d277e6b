#include "Input.h"
#include "Target.h"
#include "unarchiver/Zip.h"

namespace {

const Target target("zip", [](std::string_view input) {
    InputBuffer buffer(input);
    DroppedEntries entries;
    ZOV_SPACE::ZipUnarchiver(&buffer, entries, nullptr, 0).start();
});

}  // namespace
