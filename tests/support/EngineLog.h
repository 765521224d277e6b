// EngineLog: the diagnostic lines of its scope, each as "[unit:line] message" whatever its kind. For code that logs on
// one thread at a time; the earlier sink comes back at the end.
#ifndef TESTS_SUPPORT_ENGINELOG_H
#define TESTS_SUPPORT_ENGINELOG_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "voleeng.h"

class EngineLog {
public:
    explicit EngineLog(int level = 3) : _earlier{voleeng_debugger.level, voleeng_debugger.print, {}} {
        lines().clear();
        VoleDebugger mine{level, &EngineLog::take, {}};
        setDebugger(&mine);
    }
    EngineLog(const EngineLog&) = delete;
    EngineLog& operator=(const EngineLog&) = delete;
    ~EngineLog() { setDebugger(&_earlier); }

    // The lines so far, which are then forgotten.
    std::vector<std::string> taken() { return std::exchange(lines(), {}); }

private:
    static std::vector<std::string>& lines() {
        static std::vector<std::string> instance;
        return instance;
    }

    // Debug lines carry their position; for the others it stands in the exported globals.
    static void take(const char* line) {
        const std::string position = "[" + std::string(LogFileName) + ":" + std::to_string(LogLineNo) + "] ";
        lines().push_back(std::string_view(line).starts_with(position) ? line : position + line);
    }

    VoleDebugger _earlier;
};

#endif  // TESTS_SUPPORT_ENGINELOG_H
