#include "util/Diag.h"

#include <algorithm>
#include <cstdio>
#include <mutex>

#include "voleeng.h"

namespace diag {
namespace {

// Guards voleeng_debugger.dumpPath. A leaf: nothing is called while it is held.
constinit std::mutex dumpPathMutex;

constexpr int kErrorLevel = 1;
constexpr int kDebugLevel = 3;

// The exported record stays a plain object for hosts that look at it; the engine itself only uses atomic access.
int level() { return __atomic_load_n(&voleeng_debugger.level, __ATOMIC_RELAXED); }

auto sink() { return __atomic_load_n(&voleeng_debugger.print, __ATOMIC_RELAXED); }

thread_local Hold* hold = nullptr;

bool wanted(Kind kind) {
    switch (kind) {
        case Kind::info:
            return true;
        case Kind::error:
            return level() >= kErrorLevel;
        case Kind::debug:
            return level() >= kDebugLevel;
    }
    return false;
}

}  // namespace

void print(Kind kind, const char* format, std::va_list arguments) {
    const auto send = sink();
    if (!send || !wanted(kind)) return;

    const char* unit = __atomic_load_n(&LogFileName, __ATOMIC_RELAXED);
    const int number = __atomic_load_n(&LogLineNo, __ATOMIC_RELAXED);
    char line[kPrefixSize + kMessageSize];
    std::size_t prefixLength = 0;
    if (kind == Kind::debug) {
        const int length = std::snprintf(line, kPrefixSize, "[%s:%d] ", unit, number);
        prefixLength = length < 0 ? 0 : std::min<std::size_t>(static_cast<std::size_t>(length), kPrefixSize - 1);
    }
    line[prefixLength] = '\0';
    if (std::vsnprintf(line + prefixLength, kMessageSize, format, arguments) < 0) line[prefixLength] = '\0';
    if (hold) {
        hold->_lines.push_back({unit, number, line});
    } else {
        send(line);
    }
}

Hold::Hold() { hold = this; }

Hold::~Hold() { hold = nullptr; }

void deliver(const std::vector<HeldLine>& lines) {
    for (const HeldLine& line : lines) {
        storePosition(line.unit, line.number);
        if (const auto send = sink()) send(line.text.c_str());
    }
}

void storePosition(const char* unit, int line) {
    __atomic_store_n(&LogFileName, unit, __ATOMIC_RELAXED);
    __atomic_store_n(&LogLineNo, line, __ATOMIC_RELAXED);
}

void Site::dbg(const char* format, ...) const {
    storePosition(_unit, _line);
    std::va_list arguments;
    va_start(arguments, format);
    print(Kind::debug, format, arguments);
    va_end(arguments);
}

void Site::err(const char* format, ...) const {
    storePosition(_unit, _line);
    std::va_list arguments;
    va_start(arguments, format);
    print(Kind::error, format, arguments);
    va_end(arguments);
}

void Site::info(const char* format, ...) const {
    storePosition(_unit, _line);
    std::va_list arguments;
    va_start(arguments, format);
    print(Kind::info, format, arguments);
    va_end(arguments);
}

void setSink(int level, void (*print)(const char*)) {
    __atomic_store_n(&voleeng_debugger.level, level, __ATOMIC_RELAXED);
    __atomic_store_n(&voleeng_debugger.print, print, __ATOMIC_RELAXED);
}

void setDumpPath(const char* path) {
    std::string copy(path ? path : "");
    const std::lock_guard guard(dumpPathMutex);
    voleeng_debugger.dumpPath.swap(copy);
}

std::string dumpPath() {
    const std::lock_guard guard(dumpPathMutex);
    return voleeng_debugger.dumpPath;
}

}  // namespace diag
