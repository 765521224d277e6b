#include "Server.h"

#include <c_icap/c-icap.h>
// Behind what it needs.
#include <c_icap/body.h>
#include <c_icap/debug.h>
#include <c_icap/stats.h>

#include <algorithm>
#include <limits>

#include "Escape.h"

namespace icap {

void log(LogLevel level, std::string_view text) {
    std::string line = "vole: ";
    appendEscaped(line, text);
    line += '\n';
    const int number = static_cast<int>(level);
    if (number > CI_DEBUG_LEVEL) return;
    if (__log_error != nullptr) (*__log_error)(nullptr, "%s", line.c_str());
    if (CI_DEBUG_STDOUT) std::fputs(line.c_str(), stdout);
}

int newStatistic(const std::string& label) {
    // The server's signature lacks a const; it copies both texts.
    return ci_stat_entry_register(const_cast<char*>(label.c_str()), STAT_INT64_T, const_cast<char*>("Service vole"));
}

void addToStatistics(int id, std::uint64_t number) {
    constexpr std::uint64_t kMost = std::numeric_limits<int>::max();
    for (; id >= 0 && number != 0; number -= std::min(number, kMost))
        ci_stat_uint64_inc(id, static_cast<int>(std::min(number, kMost)));
}

std::string serverTempDir() { return CI_TMPDIR != nullptr ? CI_TMPDIR : "/tmp"; }

}  // namespace icap
