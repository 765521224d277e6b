// Process.h: how this process was built, and what it has open and running.
#ifndef TESTS_SUPPORT_PROCESS_H
#define TESTS_SUPPORT_PROCESS_H

#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;  // Such a process needs very much address space, and time.
#else
inline constexpr bool kSanitized = false;
#endif

inline std::ptrdiff_t openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

// Those that nobody has waited for, too.
inline std::vector<pid_t> children() {
    std::vector<pid_t> all;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream file(thread.path() / "children");
        all.insert(all.end(), std::istream_iterator<pid_t>(file), {});
    }
    return all;
}

#endif  // TESTS_SUPPORT_PROCESS_H
