#include "HeuPlugin.h"

#include <dlfcn.h>

#include "NoCancel.h"
#include "PatternLoader.h"
#include "PatternSlot.h"
#include "ResultText.h"
#include "io/File.h"
#include "util/Diag.h"
#include "voleeng.h"

namespace {

constexpr diag::Unit kDiag{"pattern_assistant"};

constexpr const char* kLibraryFile = "libheueng.so";
constexpr const char* kConfigurationFile = "heueng.ini";

using LoadOption = int (*)(const char* path);
using CreateInstance = void* (*)();

// Kept as is: nothing sets it, so its result code never shows.
constexpr void* kLibraryGuard = nullptr;

struct EntryPoint {
    const char* symbol;
    const char* failure;
    bool called = true;
};

constexpr EntryPoint kLoadOption{"HEU_loadOption", "fail to load Option : "};
constexpr EntryPoint kCreateInstance{"HEU_createInstance", "fail to load createInstance : "};
constexpr EntryPoint kCheckSusVirus{"HEU_checkSusVirus", "fail to load CheckSusVirus : "};
constexpr EntryPoint kDestroyInstance{"HEU_destroyInstance", "fail to load destroyInstance : ", false};

// False, with the step's text in `message`, when the library lacks the symbol, or gives it no address although it is
// to be called.
template <class Function>
bool resolve(void* library, const EntryPoint& entry, Function& function, std::string& message) {
    ::dlerror();
    function = reinterpret_cast<Function>(::dlsym(library, entry.symbol));
    const char* const error = ::dlerror();
    if (!error && (function || !entry.called)) return true;
    message = std::string(entry.failure) + (error ? error : entry.symbol);
    return false;
}

struct Library {
    LoadOption loadOption = nullptr;
    CreateInstance createInstance = nullptr;
    CheckSusVirus check = nullptr;
};

bool openLibrary(const std::string& path, Library& library, std::string& message) {
    // Cancelled in there, a thread would leave the loader's locks taken.
    const ZOV_SPACE::NoCancel guard;
    // A FIFO of that name would block for ever.
    void* const handle = ZOV_SPACE::File(path).isFile() ? ::dlopen(path.c_str(), RTLD_LAZY) : nullptr;
    if (!handle) {
        message = "fail to load heu-engine from " + path;
        return false;
    }
    void (*destroyInstance)(void*) = nullptr;  // Required, but never called.
    return resolve(handle, kLoadOption, library.loadOption, message) &&
           resolve(handle, kCreateInstance, library.createInstance, message) &&
           resolve(handle, kCheckSusVirus, library.check, message) &&
           resolve(handle, kDestroyInstance, destroyInstance, message);
}

bool configure(const Library& library, const std::string& path, std::string& message) {
    if (library.loadOption(path.c_str()) == 0) return true;
    message = "fail to load config file : " + path;
    kDiag.at(586).dbg("Call my_loadOption failed .......\n");
    return false;
}

}  // namespace

int loadHeuPlugin(const std::string& directory, std::string& message) {
    if (kLibraryGuard) {
        resultMessage(VOLE_PLUGIN_LOADED, nullptr, message);
        return VOLE_PLUGIN_LOADED;
    }
    Library library;
    if (!openLibrary(pathIn(directory, kLibraryFile), library, message)) return VOLE_PLUGIN_FAILED;
    if (!configure(library, pathIn(directory, kConfigurationFile), message)) return VOLE_PLUGIN_FAILED;
    if (__atomic_load_n(&heu_instance, __ATOMIC_ACQUIRE)) {
        resultMessage(VOLE_PLUGIN_PRESENT, nullptr, message);
        return VOLE_PLUGIN_PRESENT;
    }
    void* const instance = library.createInstance();
    heuCheckFunction = library.check;
    __atomic_store_n(&heu_instance, instance, __ATOMIC_RELEASE);
    return 0;
}

int askHeuPlugin(int target, int* extra) {
    const ZOV_SPACE::Monitor guard(heuMutex);
    void* const instance = __atomic_load_n(&heu_instance, __ATOMIC_ACQUIRE);
    if (!instance) {
        kDiag.at(1360).err("Fail to get Heuristic Engine Instance.");
        if (extra) *extra = 0;
        return 0;
    }
    int verdict = 0;
    heuCheckFunction(instance, target, &verdict, extra);
    return verdict;
}
