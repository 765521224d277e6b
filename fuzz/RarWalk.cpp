#include "Input.h"
#include "Target.h"
#include "unarchiver/Rar.h"

namespace {

const Target target("rar", [](std::string_view input) {
    InputBuffer buffer(input);
    DroppedEntries entries;
    ZOV_SPACE::RarUnarchiver(&buffer, entries, nullptr, 0).start();
});

}  // namespace
