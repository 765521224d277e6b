// Processors.h: how many processors this process may use.
#ifndef VOLE_TOOL_PROCESSORS_H
#define VOLE_TOOL_PROCESSORS_H

#include <sched.h>

#include <algorithm>
#include <thread>

inline unsigned processors() {
    cpu_set_t set;
    if (::sched_getaffinity(0, sizeof set, &set) == 0) return static_cast<unsigned>(CPU_COUNT(&set));
    return std::max(std::thread::hardware_concurrency(), 1u);  // More of them than the set has room for.
}

#endif  // VOLE_TOOL_PROCESSORS_H
