#include "Target.h"
#include "VoleOptions.h"
#include "support/TempDir.h"
#include "voleeng.h"

namespace {

void run(std::string_view input) {
    static const TempDir dir;
    constexpr int kBefore = 7;
    VoleOptions::set({kBefore, kBefore, kBefore, kBefore, kBefore});
    const int result = readOptions(dir.write("options", std::string(input)).c_str());
    const OptionValues values = VoleOptions::get();
    require(result == 0 ||
            (result == VOLE_INVALID_OPTION && values.maxEntries == kBefore && values.maxSize == kBefore));
    for (const int value : {values.maxEntries, values.maxRatio, values.maxLevelEntries, values.maxDepth}) {
        require(value >= 0);
        note(std::to_string(value) + " ");
    }
}

const Target target("options", run);

}  // namespace
