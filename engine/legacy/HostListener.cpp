#include "HostListener.h"

#include <algorithm>
#include <cstdio>
#include <mutex>

#include "voleeng.h"

namespace host {
namespace {

// Guards voleeng_debugger.dumpPath. A leaf: nothing is called while it is held.
constinit std::mutex dumpPathMutex;

constexpr int kErrorLevel = 1;
constexpr int kDebugLevel = 3;
constexpr std::size_t kPrefixSize = 128;  // Bytes for "[unit:line] ", its NUL included.

// The exported record stays a plain object for hosts that look at it; the engine itself only uses atomic access.
int level() { return __atomic_load_n(&voleeng_debugger.level, __ATOMIC_RELAXED); }

auto sink() { return __atomic_load_n(&voleeng_debugger.print, __ATOMIC_RELAXED); }

// Writes the position that a line of the kind begins with, and a NUL; returns its length.
std::size_t writePrefix(char* line, diag::Kind kind, diag::Position position) {
    line[0] = '\0';
    if (kind != diag::Kind::debug) return 0;
    const int length = std::snprintf(line, kPrefixSize, "[%s:%d] ", position.unit, position.line);
    return length < 0 ? 0 : std::min<std::size_t>(static_cast<std::size_t>(length), kPrefixSize - 1);
}

class HostListener : public diag::Listener {
public:
    void storePosition(diag::Position position) override {
        __atomic_store_n(&LogFileName, position.unit, __ATOMIC_RELAXED);
        __atomic_store_n(&LogLineNo, position.line, __ATOMIC_RELAXED);
    }

    diag::Position position() const override {
        return {__atomic_load_n(&LogFileName, __ATOMIC_RELAXED), __atomic_load_n(&LogLineNo, __ATOMIC_RELAXED)};
    }

    bool wants(diag::Kind kind) const override {
        if (!sink()) return false;
        switch (kind) {
            case diag::Kind::info:
                return true;
            case diag::Kind::error:
                return level() >= kErrorLevel;
            case diag::Kind::debug:
                return level() >= kDebugLevel;
        }
        return false;
    }

    void deliver(diag::Kind kind, diag::Position position, std::string_view message) override {
        const auto send = sink();
        if (!send) return;
        char line[kPrefixSize + diag::kMessageSize];
        const std::size_t prefix = writePrefix(line, kind, position);
        const std::size_t length = message.copy(line + prefix, diag::kMessageSize - 1);
        line[prefix + length] = '\0';
        send(line);
    }

    std::string dumpDirectory() const override {
        const std::lock_guard guard(dumpPathMutex);
        return voleeng_debugger.dumpPath;
    }
};

// Never taken down: threads may still scan while the process exits.
union Everlasting {
    constexpr Everlasting() : listener() {}
    Everlasting(const Everlasting&) = delete;
    Everlasting& operator=(const Everlasting&) = delete;
    ~Everlasting() {}  // NOLINT(modernize-use-equals-default): it would be deleted.

    HostListener listener;
};
constinit Everlasting ofProcess;

}  // namespace

diag::Listener& listener() { return ofProcess.listener; }

void setSink(int newLevel, void (*print)(const char*)) {
    __atomic_store_n(&voleeng_debugger.level, newLevel, __ATOMIC_RELAXED);
    __atomic_store_n(&voleeng_debugger.print, print, __ATOMIC_RELAXED);
}

void setDumpPath(const char* path) {
    std::string copy(path ? path : "");
    const std::lock_guard guard(dumpPathMutex);
    voleeng_debugger.dumpPath.swap(copy);
}

}  // namespace host
