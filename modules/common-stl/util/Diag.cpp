// A line is stored in two steps: first its position goes to the two exported variables, then the text is formatted and
// handed to the host's callback as read at that moment, so that no lock is held while the host's code runs. Lines of
// other threads may come between: the position is only a hint.
//
// Work done ahead of its turn holds its lines back in an object of its thread's (Hold), which delivers them later.
#include "util/Diag.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <utility>

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

// Writes the position that a line of the kind begins with, and a NUL; returns its length.
std::size_t writePrefix(char* line, Kind kind, const char* unit, int number) {
    line[0] = '\0';
    if (kind != Kind::debug) return 0;
    const int length = std::snprintf(line, kPrefixSize, "[%s:%d] ", unit, number);
    return length < 0 ? 0 : std::min<std::size_t>(static_cast<std::size_t>(length), kPrefixSize - 1);
}

// What stands ahead of each message that is held back.
struct HeldHeader {
    const char* unit;
    int number;
    std::uint16_t length;  // Bytes of the message.
    Kind kind;
};
static_assert(kMessageSize <= UINT16_MAX);

}  // namespace

void print(Kind kind, const char* format, std::va_list arguments) {
    const auto send = sink();
    if (!send || !wanted(kind)) return;

    const char* unit = __atomic_load_n(&LogFileName, __ATOMIC_RELAXED);
    const int number = __atomic_load_n(&LogLineNo, __ATOMIC_RELAXED);
    char line[kPrefixSize + kMessageSize];
    char* const message = line + writePrefix(line, kind, unit, number);
    if (std::vsnprintf(message, kMessageSize, format, arguments) < 0) message[0] = '\0';
    if (hold) {
        hold->_lines.add(kind, unit, number, message);
    } else {
        send(line);
    }
}

Hold::Hold() { hold = this; }

Hold::~Hold() { hold = nullptr; }

HeldLines Hold::take() {
    _lines.shrinkToFit();
    return std::exchange(_lines, {});
}

void HeldLines::add(Kind kind, const char* unit, int number, std::string_view message) {
    const HeldHeader header{unit, number, static_cast<std::uint16_t>(message.size()), kind};
    _bytes.append(reinterpret_cast<const char*>(&header), sizeof header).append(message);
}

void HeldLines::deliver() const {
    HeldHeader header;
    for (std::size_t at = 0; at < _bytes.size(); at += header.length) {
        std::memcpy(&header, _bytes.data() + at, sizeof header);
        at += sizeof header;
        storePosition(header.unit, header.number);
        const auto send = sink();
        if (!send || !wanted(header.kind)) continue;
        char line[kPrefixSize + kMessageSize];
        char* const message = line + writePrefix(line, header.kind, header.unit, header.number);
        message[_bytes.copy(message, header.length, at)] = '\0';
        send(line);
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
