// The input as the list of names, and as the file of options.
#include "PatternLoader.h"
#include "Target.h"
#include "VirusList.h"
#include "VoleOptions.h"
#include "support/TempDir.h"
#include "voleeng.h"

void readList(std::string_view input) {
    static const TempDir dir;
    dir.write("pattern_assistant.xml", std::string(input));
    VirusList list;
    const int result = loadVirusList(&list, dir.path().string());
    require(list.empty() ? result == VOLE_INVALID_LIST : result == 0);
    for (const char* name : {"", "Example-False-Alarm", "EXAMPLE-spyware-1"}) {
        static_cast<void>(list.isFalseAlarm(name));
        static_cast<void>(list.isSpyware(name));
    }
}

void readOptionFile(std::string_view input) {
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
