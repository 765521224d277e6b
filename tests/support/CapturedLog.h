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

    explicit CapturedLog(int level = kEverything)
        : _earlierLevel(voleeng_debugger.level), _earlierPrint(voleeng_debugger.print) {
        lines(true);
        diag::setSink(level, [](const char* line) {
            const std::lock_guard guard(mutex());
            store().emplace_back(line);
        });
    }
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;
    ~CapturedLog() { diag::setSink(_earlierLevel, _earlierPrint); }

    // The lines so far, in order of arrival.
    std::vector<std::string> lines(bool clear = false) {
        const std::lock_guard guard(mutex());
        std::vector<std::string> copy = store();
        if (clear) store().clear();
        return copy;
    }

    // Lines that end with `text`: that is what a line says behind its position.
    std::size_t count(std::string_view text) {
        const std::vector<std::string> all = lines();
        return static_cast<std::size_t>(
            std::count_if(all.begin(), all.end(), [text](std::string_view line) { return line.ends_with(text); }));
    }

private:
    static std::mutex& mutex() {
        static std::mutex instance;
        return instance;
    }
    static std::vector<std::string>& store() {
        static std::vector<std::string> instance;
        return instance;
    }

    int _earlierLevel;
    void (*_earlierPrint)(const char*);
};

#endif  // TESTS_SUPPORT_CAPTUREDLOG_H
