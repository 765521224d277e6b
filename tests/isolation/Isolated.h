// Isolated.h: isolated scanners for tests, and what this process has open and running for them.
#ifndef TESTS_ISOLATION_ISOLATED_H
#define TESTS_ISOLATION_ISOLATED_H

#include <sys/types.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/VoleHost.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

// Null when there is none; `why` says why.
inline VoleScanner isolatedScanner(const VoleSet& set, const char* worker, const vole_limits& limits = VOLE_LIMITS_INIT,
                                   std::uint64_t graceMs = 5000, std::string* why = nullptr) {
    char text[200] = "";
    vole_isolation isolation = VOLE_ISOLATION_INIT;
    isolation.worker = worker;
    isolation.max_memory = 256U << 20;
    isolation.grace_ms = graceMs;
    isolation.why = text;
    isolation.why_size = sizeof text;
    vole_scanner* scanner = nullptr;
    vole_isolated_scanner_new(set.get(), &limits, &isolation, &scanner);
    if (why) *why = text;
    return VoleScanner(scanner);
}

// Of this process, those that nobody has waited for, too.
inline std::vector<pid_t> children() {
    std::vector<pid_t> all;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream file(thread.path() / "children");
        all.insert(all.end(), std::istream_iterator<pid_t>(file), {});
    }
    return all;
}

// Descriptors and mappings of shared memory.
inline std::string possessions() {
    const auto fds = std::filesystem::directory_iterator("/proc/self/fd");
    std::ifstream maps("/proc/self/maps");
    const std::string text(std::istreambuf_iterator<char>(maps), {});
    std::size_t shared = 0;
    for (std::size_t at = 0; (at = text.find("/memfd:vole", at)) != std::string::npos; ++at) ++shared;
    return std::to_string(std::distance(begin(fds), end(fds))) + " descriptors, " + std::to_string(shared) +
           " shared memories";
}

#endif  // TESTS_ISOLATION_ISOLATED_H
