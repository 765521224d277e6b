// A heuristic engine for tests. Its configuration file holds up to three words: the result of HEU_loadOption(), the
// verdict that it gives, and "null" when it is to make no instance.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#define PLUGIN_API __attribute__((visibility("default")))

namespace {

int configuredVerdict = 0;
bool makesInstance = true;
std::atomic<int> callsUnderWay = 0;
int instance;

}  // namespace

extern "C" {

PLUGIN_API int HEU_loadOption(const char* path) {
    std::ifstream file(path);
    int result = 0;
    std::string instanceWord;
    file >> result >> configuredVerdict >> instanceWord;
    makesInstance = instanceWord != "null";
    return result;
}

PLUGIN_API void* HEU_createInstance() { return makesInstance ? &instance : nullptr; }

// A target of 0 leaves the verdict unwritten. `extra` is raised by the target; below zero when calls overlap.
PLUGIN_API int HEU_checkSusVirus(void* self, int target, int* verdict, int* extra) {
    const bool overlap = callsUnderWay.fetch_add(1) != 0;
    std::this_thread::sleep_for(std::chrono::microseconds(200));
    if (target != 0) *verdict = self == &instance ? configuredVerdict + target : -1;
    if (extra) *extra = overlap ? -1 : *extra + target;
    callsUnderWay.fetch_sub(1);
    return 12345;  // Not what the host gets.
}

#ifndef WITHOUT_DESTROY
PLUGIN_API void HEU_destroyInstance(void*) { std::abort(); }
#endif
}
