#include "Input.h"
#include "Target.h"
#include "VoleOptions.h"
#include "voleeng.h"

namespace {

void run(std::string_view input) {
    static InputFile file;
    file.set(input);
    constexpr int kBefore = 7;
    VoleOptions::set({kBefore, kBefore, kBefore, kBefore, kBefore});
    const int result = readOptions(file.path());
    const OptionValues values = VoleOptions::get();
    require(result == 0 ||
            (result == VOLE_INVALID_OPTION && values.maxEntries == kBefore && values.maxSize == kBefore));
    for (const int value : {values.maxEntries, values.maxRatio, values.maxLevelEntries, values.maxDepth}) {
        require(value >= 0);
    }
}

const Target target("options", run);

}  // namespace
