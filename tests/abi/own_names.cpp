// A host with global functions of its own that happen to be called like the library's. It gets the library by dlopen().
#include <dlfcn.h>

#include <cstdlib>
#include <string>

#include "../support/Eicar.h"
#include "../support/TempDir.h"

#define HOSTS_OWN(name) \
    extern "C" __attribute__((visibility("default"))) void name() { std::abort(); }

HOSTS_OWN(init)
HOSTS_OWN(reload)
HOSTS_OWN(freeResource)
HOSTS_OWN(scanFile)
HOSTS_OWN(IsFalseAlarm)
HOSTS_OWN(setDebugger)
HOSTS_OWN(getVersion)

int main() {
    void* const library = ::dlopen(VOLE_LIBRARY, RTLD_NOW | RTLD_GLOBAL);
    const auto load = reinterpret_cast<int (*)(const char*, std::string&)>(::dlsym(library, "init"));
    const auto scan = reinterpret_cast<int (*)(const char*, std::string&, std::string&)>(::dlsym(library, "scanFile"));
    const auto unload = reinterpret_cast<int (*)()>(::dlsym(library, "freeResource"));
    const TempDir dir;
    std::string message, virus;
    const bool found = load(VOLE_STARTER_PATTERNS, message) == 0 &&
                       scan(dir.write("s", eicar()).c_str(), virus, message) == 1 && virus == "Eicar-Test-File";
    return found && unload() == 0 ? 0 : 1;
}
