#include "PatternLoader.h"

#include <cxxabi.h>

#include <vector>

#include "PatternContainer.h"
#include "ResultText.h"
#include "Utils.h"
#include "io/File.h"
#include "util/Diag.h"
#include "util/Log.h"
#include "voleeng.h"

namespace {

using ZOV_SPACE::File;

constexpr diag::Unit kDiag{"pattern_assistant"};

int loadFile(PatternContainer& container, const std::string& path) {
    try {
        return container.loadPattern(path);
    } catch (abi::__forced_unwind&) {
        throw;  // The thread is being cancelled.
    } catch (...) {
        return VOLE_INVALID_PATTERN;
    }
}

}  // namespace

std::string pathIn(const std::string& directory, const char* name) {
    const bool closed = ZOV_SPACE::StringHelper::endsWith(directory.c_str(), "/");
    return directory + (closed ? "" : "/") + name;
}

int load_pattern(PatternContainer* container, const char* directory, std::string& message) {
    if (!container) {
        resultMessage(VOLE_ALREADY_LOADED, nullptr, message);
        kDiag.at(441).dbg("container is NULL");
        return VOLE_ALREADY_LOADED;
    }
    ZOV_SPACE::Log::setLogLevel(0);
    const File folder(directory ? directory : "");
    std::vector<std::string> names;
    if (!folder.exists() || !folder.isDirectory() || !folder.list(names)) {
        resultMessage(VOLE_INVALID_DIRECTORY, directory, message);
        return VOLE_INVALID_DIRECTORY;
    }
    for (const std::string& name : names) {
        const std::string path = pathIn(directory, name.c_str());
        if (!File(path).isFile()) continue;
        if (const int result = loadFile(*container, path); result != 0) {
            kDiag.at(490).err("[load_pattern]: container->loadPattern return Error %d.", result);
            resultMessage(VOLE_INVALID_PATTERN, path.c_str(), message);
            return VOLE_INVALID_PATTERN;
        }
    }
    container->prepare();
    kDiag.at(503).dbg("vole-engine, pattern [%d]\n", container->loadedCount());
    return 0;
}
