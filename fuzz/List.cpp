#include "Target.h"
#include "VirusList.h"
#include "support/TempDir.h"
#include "voleeng.h"

namespace {

void run(std::string_view input) {
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

const Target target("list", run);

}  // namespace
