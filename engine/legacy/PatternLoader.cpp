#include "PatternLoader.h"

#include <cxxabi.h>
#include <sys/stat.h>

#include <cerrno>
#include <optional>
#include <vector>

#include "PatternContainer.h"
#include "Raise.h"
#include "ResultText.h"
#include "VirusList.h"
#include "io/File.h"
#include "util/Diag.h"
#include "util/Log.h"
#include "util/XMLTree.h"
#include "voleeng.h"

namespace {

using ZOV_SPACE::Exception;
using ZOV_SPACE::File;

constexpr diag::Unit kDiag{"pattern_assistant"};

// 0, also when there was no file to load, or VOLE_INVALID_PATTERN when the step, which loads signatures, fails in
// whatever way.
template <class Step>
int guarded(Step step) {
    try {
        const int result = step();
        return result == 0 || result == PatternContainer::kNoFile ? 0 : VOLE_INVALID_PATTERN;
    } catch (abi::__forced_unwind&) {
        throw;  // The thread is being cancelled.
    } catch (...) {
        return VOLE_INVALID_PATTERN;
    }
}

int failed(int code, const std::string& path, std::string& message) {
    kDiag.at(490).err("[load_pattern]: container->loadPattern return Error %d.", code);
    resultMessage(code, path.c_str(), message);
    return code;
}

// Whether the path, which the directory has just listed, is a regular file; nothing when it cannot be looked at. What
// was taken away since is no file, and neither is a link that leads nowhere.
std::optional<bool> isFile(const std::string& path) {
    struct stat status;
    if (::stat(path.c_str(), &status) == 0) return S_ISREG(status.st_mode);
    return PatternContainer::meansNoFile(errno) ? std::optional(false) : std::nullopt;
}

int loadFiles(PatternContainer& container, const char* directory, const std::vector<std::string>& names,
              std::string& message) {
    for (const std::string& name : names) {
        const std::string path = pathIn(directory, name.c_str());
        const std::optional<bool> found = isFile(path);
        // Without a file that is there the set would be incomplete, and nobody would know.
        if (!found && PatternContainer::isPatternName(name)) return failed(VOLE_INVALID_PATTERN, path, message);
        if (!found || !*found) continue;
        if (const int code = guarded([&] { return container.loadPattern(path); })) return failed(code, path, message);
    }
    return 0;
}

}  // namespace

std::string pathIn(const std::string& directory, const char* name) {
    return directory + (directory.ends_with('/') ? "" : "/") + name;
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
    const int result = loadFiles(*container, directory, names, message);
    // Also behind a file that failed: init() goes on with what was loaded when the lists are there.
    const int prepared = guarded([&] {
        container->prepare();
        return 0;
    });
    if (result != 0) return result;
    if (prepared != 0) return failed(prepared, directory, message);
    kDiag.at(503).dbg("vole-engine, pattern [%d]\n", container->loadedCount());
    return 0;
}

int loadVirusList(VirusList* list, const std::string& directory) {
    if (!list) return VOLE_LIST_LOADED;  // Kept as is: a wrong text, but hosts know the number.
    const auto parser = ZOV_SPACE::XMLParser::createDefaultXMLParser();
    if (!parser) {
        kDiag.at(358).err("Fail to create XMLParser.");
        return VOLE_OUT_OF_MEMORY;
    }
    try {
        const std::string path = pathIn(directory, kVirusListFile);
        if (!readVirusList(*parser, path, *list)) {
            ZOV_SPACE::raise<ZOV_SPACE::IOException>(path + ": " + ZOV_SPACE::systemErrorText());
        }
    } catch (Exception& e) {
        kDiag.at(423).err("%s", e.toString());
    }
    if (list->empty()) {
        kDiag.at(428).err("Fail to load false-alarm and spyware.");
        return VOLE_INVALID_LIST;
    }
    kDiag.at().dbg("faList.size[%d], spywareList.size[%d]\n", static_cast<int>(list->falseAlarmCount()),
                   static_cast<int>(list->spywareCount()));
    return 0;
}
