// CapturedLog: collects the diagnostic lines of its scope, from all threads, and puts the earlier sink back. One at a
// time; no diagnostic may be under way in another thread when it is made or destroyed.
#ifndef TESTS_SUPPORT_CAPTUREDLOG_H
#define TESTS_SUPPORT_CAPTUREDLOG_H

#include <algorithm>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "util/Diag.h"
#include "voleeng.h"

class CapturedLog {
public:
    static constexpr int kErrors = 1;
    static constexpr int kEverything = 3;

    explicit CapturedLog(int level = kEverything, void (*print)(const char*) = append)
        : _earlierLevel(voleeng_debugger.level), _earlierPrint(voleeng_debugger.print) {
        _lines.clear();
        diag::setSink(level, print);
    }
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;
    ~CapturedLog() { diag::setSink(_earlierLevel, _earlierPrint); }

    // The lines so far, in order of arrival.
    std::vector<std::string> lines(bool clear = false) {
        const std::lock_guard guard(_mutex);
        std::vector<std::string> copy = _lines;
        if (clear) _lines.clear();
        return copy;
    }

    // Lines that end with `text`: that is what a line says behind its position.
    std::size_t count(std::string_view text) {
        const std::vector<std::string> all = lines();
        return static_cast<std::size_t>(
            std::count_if(all.begin(), all.end(), [text](std::string_view line) { return line.ends_with(text); }));
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
};

// The same for code that logs on one thread at a time: each line as "[unit:line] message" whatever its kind.
class EngineLog : public CapturedLog {
public:
    explicit EngineLog(int level = kEverything) : CapturedLog(level, take) {}

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
