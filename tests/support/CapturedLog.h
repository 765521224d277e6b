// CapturedLog: collects the diagnostic lines that the host hears in its scope, from all threads, and puts the earlier
// sink back. One at a time; no diagnostic may be under way in another thread when it is made or destroyed.
#ifndef TESTS_SUPPORT_CAPTUREDLOG_H
#define TESTS_SUPPORT_CAPTUREDLOG_H

#include <algorithm>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "HostListener.h"
#include "voleeng.h"

class CapturedLog {
public:
    static constexpr int kErrors = 1;

    explicit CapturedLog(int level = 3, void (*print)(const char*) = append)
        : _earlierLevel(voleeng_debugger.level), _earlierPrint(voleeng_debugger.print) {
        _lines.clear();
        host::setSink(level, print);
    }
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;
    ~CapturedLog() { host::setSink(_earlierLevel, _earlierPrint); }

    // The lines so far, in order of arrival.
    std::vector<std::string> lines(bool clear = false) {
        const std::lock_guard guard(_mutex);
        return clear ? std::exchange(_lines, {}) : _lines;
    }

    // Lines that end with `text`: that is what a line says behind its position.
    std::size_t count(std::string_view text) {
        const auto ends = [text](const std::string& line) { return line.ends_with(text); };
        return static_cast<std::size_t>(std::ranges::count_if(lines(), ends));
    }

protected:
    static void append(const char* line) {
        const std::lock_guard guard(_mutex);
        _lines.emplace_back(line);
    }

private:
    static inline std::mutex _mutex;
    static inline std::vector<std::string> _lines;

    int _earlierLevel;
    void (*_earlierPrint)(const char*);
    diag::ListenerScope _listening{host::listener()};  // For what this thread calls inside the engine.
};

// The same for code that logs on one thread at a time: each line as "[unit:line] message" whatever its kind.
class EngineLog : public CapturedLog {
public:
    explicit EngineLog(int level = 3) : CapturedLog(level, take) {}

    // The lines so far, which are then forgotten.
    std::vector<std::string> taken() { return lines(true); }

private:
    // Debug lines carry their position; for the others it stands in the exported globals.
    static void take(const char* line) {
        const std::string position = "[" + std::string(LogFileName) + ":" + std::to_string(LogLineNo) + "] ";
        append(std::string_view(line).starts_with(position) ? line : (position + line).c_str());
    }
};

#endif  // TESTS_SUPPORT_CAPTUREDLOG_H
