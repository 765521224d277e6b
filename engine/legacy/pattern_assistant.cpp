// The exported functions. Each translates arguments, calls one inner function and turns exceptions into codes.
#include <cxxabi.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <string>

#include "Exception.h"
#include "HeuPlugin.h"
#include "HostListener.h"
#include "PatternLoader.h"
#include "PatternSlot.h"
#include "ResultText.h"
#include "ScanPipeline.h"
#include "SpamRule.h"
#include "VirusList.h"
#include "VoleOptions.h"
#include "io/RegularFile.h"
#include "util/Diag.h"
#include "voleeng.h"

namespace {

using ZOV_SPACE::Monitor;
using ZOV_SPACE::OwnFd;

constexpr diag::Unit kDiag{"pattern_assistant"};

constexpr const char* kVersion = "Vole Engine Version: " VOLE_VERSION;
constexpr std::uint64_t kLargestFile = 0x7FFFFFFF;  // Bytes.

// Runs the body of an exported function, to which the host listens; nothing but the cancellation of the thread leaves
// it.
template <class Body>
auto contained(Body body, decltype(body()) onFailure) {
    const diag::ListenerScope listening(host::listener());
    try {
        return body();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return onFailure;
    }
}

// The same for functions with a message: lack of memory and other failures have codes of their own.
template <class Body>
int withMessage(Body body, int failureCode, const char* argument, std::string& message) {
    const auto fail = [&](int code) {
        return contained(
            [&] {
                resultMessage(code, argument, message);
                return code;
            },
            code);
    };
    const diag::ListenerScope listening(host::listener());
    try {
        return body();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (const std::bad_alloc&) {
        return fail(VOLE_OUT_OF_MEMORY);
    } catch (const std::length_error&) {
        return fail(VOLE_OUT_OF_MEMORY);
    } catch (...) {
        return fail(failureCode);
    }
}

// Sets the message to the code's text, logs the text and returns the code.
int report(int code, const char* argument, std::string& message, diag::Site site) {
    resultMessage(code, argument, message);
    site.err("%s", message.c_str());
    return code;
}

// What init() says of signatures that did not load.
void reportPatterns(int code, const char* directory, std::string& message) {
    resultMessage(code, directory, message);
    kDiag.at(664).err("rc1 is %d", code);
    kDiag.at(665).err("%s", message.c_str());
}

int initEngine(const char* directory, std::string& message) {
    const Monitor guard(engineMutex);
    if (activeSlot.load(std::memory_order_acquire)) {
        return report(VOLE_ALREADY_LOADED, directory, message, kDiag.at(624));
    }
    releaseSlots();  // A pair that an earlier call made but could not fill.
    bool secondFailed;
    if (!createSlots(secondFailed)) {
        return report(VOLE_OUT_OF_MEMORY, directory, message, kDiag.at(secondFailed ? 643 : 633));
    }
    if (!directory) {  // It names no files at all: not even those of the root directory.
        reportPatterns(VOLE_INVALID_DIRECTORY, directory, message);
        return VOLE_INVALID_DIRECTORY;
    }
    const int optionResult = readOptions(pathIn(directory, vole_ini_fname));
    if (optionResult != 0) kDiag.at(656).err("LOAD_OPOTION error %d.", optionResult);

    const int patternResult = load_pattern(slotA->patterns.get(), directory, message);
    const int listResult = loadVirusList(slotA->paList.get(), directory);
    if (patternResult != 0) reportPatterns(patternResult, directory, message);
    if (listResult != 0) {
        resultMessage(listResult, directory, message);
        kDiag.at(670).err("rc2 is %d", listResult);
        kDiag.at(671).err("%s", message.c_str());
    }
    if (patternResult == 0 || listResult == 0) activate(slotA);

    const int pluginResult = loadHeuPlugin(directory, message);
    if (pluginResult != 0) {
        resultMessage(pluginResult, directory, message);
        kDiag.at(681).err("rc3 is %d", pluginResult);
        kDiag.at(682).err("Fail to install heueng : %s.", message.c_str());
    }
    const bool allFailed = patternResult != 0 && listResult != 0 && pluginResult != 0;
    return allFailed ? patternResult : 0;
}

int reloadEngine(const char* directory, std::string& message) {
    const Monitor guard(engineMutex);
    PatternSlot* const active = activeSlot.load(std::memory_order_acquire);
    if (!active) {
        resultMessage(VOLE_NOT_LOADED, directory, message);
        return VOLE_NOT_LOADED;
    }
    PatternSlot* const standby = active->partner;
    if (!renewStandby(standby)) {
        resultMessage(VOLE_STANDBY_BUSY, directory, message);
        return VOLE_STANDBY_BUSY;
    }
    std::unique_ptr<PatternSlot, decltype(&emptyStandby)> unlessActivated(standby, &emptyStandby);
    const int patternResult = load_pattern(standby->patterns.get(), directory, message);
    const int listResult = directory ? loadVirusList(standby->paList.get(), directory) : VOLE_INVALID_LIST;
    if (patternResult != 0) return report(patternResult, directory, message, kDiag.at(726));
    if (listResult != 0) return report(listResult, directory, message, kDiag.at(732));
    activate(unlessActivated.release());
    return 0;
}

int cannotOpen(const char* path, std::string& message) {
    resultMessage(VOLE_CANNOT_OPEN, path, message);
    return VOLE_CANNOT_OPEN;
}

std::string baseName(const std::string& path) { return path.substr(path.rfind('/') + 1); }

// As scanDescriptor(); an exception of the framework that gets this far is logged and leaves the file clean.
int scanOpenFile(int fd, std::uint64_t size, const char* path, std::string& virusName) {
    try {
        return scanDescriptor(fd, static_cast<unsigned int>(size), baseName(path), virusName);
    } catch (ZOV_SPACE::Exception& e) {
        kDiag.at(1426).err("PARSE raise exception: %s", e.toString());
        return VOLE_CLEAN;
    }
}

int scanPath(const char* path, std::string& virusName, std::string& message) {
    const OwnFd file = path ? ZOV_SPACE::openForReading(path) : OwnFd();
    if (!file) {
        kDiag.at(1393).err("Can't open %s", path ? path : "[NULL]");
        return cannotOpen(path, message);
    }
    const auto size = ZOV_SPACE::regularFileSize(file.get());
    if (!size) return cannotOpen(path, message);
    if (*size > kLargestFile) {
        kDiag.at(1393).err("Can't open %s", path);
        return cannotOpen(path, message);
    }
    const int result = scanOpenFile(file.get(), *size, path, virusName);
    if (result == VOLE_FOUND) {
        kDiag.at(1413).dbg("(IN PARSE), Found virus [%s].", virusName.c_str());
    } else if (result != VOLE_CLEAN) {
        resultMessage(result, path, message);
    }
    return result;
}

}  // namespace

int init(const char* dir, std::string& message) {
    return withMessage([&] { return initEngine(dir, message); }, VOLE_INVALID_PATTERN, dir, message);
}

int reload(const char* dir, std::string& message) {
    return withMessage([&] { return reloadEngine(dir, message); }, VOLE_INVALID_PATTERN, dir, message);
}

int freeResource() {
    return contained(
        [] {
            const Monitor guard(engineMutex);
            releaseSlots();
            return 0;
        },
        0);
}

int scanFile(const char* path, std::string& virusName, std::string& message) {
    return withMessage([&] { return scanPath(path, virusName, message); }, VOLE_SCAN_FAILED, path, message);
}

int IsFalseAlarm(const char* name) {
    return contained(
        [=] {
            const SlotLease slot = SlotLease::acquire();
            return slot && slot->paList->isFalseAlarm(name) ? 1 : 0;
        },
        0);
}

int IsSpyware(const char* name) {
    return contained(
        [=] {
            const SlotLease slot = SlotLease::acquire();
            return slot && slot->paList->isSpyware(name) ? 1 : 0;
        },
        0);
}

int checkSpam(const char* subject, const char* attachmentName, unsigned int /*reserved*/, std::string& virusName) {
    return contained([&] { return matchSpam(subject, attachmentName, virusName) ? 1 : 0; }, 0);
}

int checkSusVirus(int target, int* extra) {
    return contained([=] { return askHeuPlugin(target, extra); }, 0);
}

const char* getVersion() { return kVersion; }

void setDebugger(VoleDebugger* record) {
    if (record) host::setSink(record->level, record->print);
}

void setDumpPath(const char* path) {
    contained(
        [=] {
            host::setDumpPath(path);
            return 0;
        },
        0);
}
