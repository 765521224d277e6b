// Log: the process-wide log level. Safe from any thread.
#ifndef COMMON_STL_UTIL_LOG_H
#define COMMON_STL_UTIL_LOG_H

#include <atomic>

namespace ZOV_SPACE {

class Log {
public:
    static void setLogLevel(int level) { _level.store(level, std::memory_order_relaxed); }
    static int getLogLevel() { return _level.load(std::memory_order_relaxed); }

private:
    static inline constinit std::atomic<int> _level = 0;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_UTIL_LOG_H
