// Isolated.h: isolated scanners for tests, what they come to for many files, and what this process has open for them.
#ifndef TESTS_ISOLATION_ISOLATED_H
#define TESTS_ISOLATION_ISOLATED_H

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "support/Process.h"
#include "support/TempDir.h"
#include "support/VoleHost.h"

// Null when there is none; `why` says why.
inline VoleScanner isolatedScanner(const VoleSet& set, const char* worker, std::uint64_t graceMs,
                                   std::string* why = nullptr) {
    char text[200] = "";
    const vole_isolation isolation{sizeof isolation, worker, 256U << 20, graceMs, text, sizeof text};
    vole_scanner* scanner = nullptr;
    vole_isolated_scanner_new(set.get(), nullptr, &isolation, &scanner);
    if (why) *why = text;
    return VoleScanner(scanner);
}

// What `tell` makes of the scanner and a code when it is done with each file.
template <class Tell>
std::vector<std::string> toldOfEach(vole_scanner* scanner, const std::vector<std::string>& names, Tell tell) {
    std::vector<const char*> paths;
    for (const std::string& name : names) paths.push_back(name.c_str());
    std::tuple context(scanner, tell, std::vector<std::string>());
    const auto enter = [](void* of, std::size_t index, vole_error error, vole_outcome outcome) {
        auto& [with, tellOf, answers] = *static_cast<decltype(context)*>(of);
        EXPECT_EQ(index, answers.size());
        EXPECT_EQ(outcome, vole_result_outcome(vole_scanner_result(with)));
        answers.push_back(tellOf(with, error));
        return 0;
    };
    EXPECT_EQ(vole_scan_paths(scanner, paths.data(), paths.size(), enter, &context), VOLE_OK);
    return std::get<2>(context);
}

inline std::string toldUnlessLost(vole_scanner* scanner, vole_error error) {
    return error == VOLE_E_WORKER || error == VOLE_E_ISOLATION ? "lost" : told(scanner);
}

// Of this process: descriptors and mappings of shared memory.
inline std::string possessions() {
    std::ifstream maps("/proc/self/maps");
    int shared = 0;
    for (std::string line; std::getline(maps, line);) shared += line.find("/memfd:vole") != line.npos;
    return std::to_string(openDescriptors()) + " descriptors, " + std::to_string(shared) + " shared memories";
}

// A fixture with an isolated scanner. Whatever its workers did, nothing of them is left in the end.
class IsolatedTest : public testing::Test {
protected:
    void isolate(const char* worker, std::uint64_t graceMs) {
        set = loadedSet(patterns.path());
        isolated = isolatedScanner(set, worker, graceMs);
        ASSERT_TRUE(isolated);
    }

    void TearDown() override {
        isolated.reset();
        EXPECT_EQ(possessions(), before);
        EXPECT_EQ(::waitid(P_ALL, 0, nullptr, WEXITED | WNOHANG), -1) << "there is no child, dead or alive";
    }

    const std::string before = possessions();
    TempDir patterns, files;
    VoleSet set;
    VoleScanner isolated;
};

#endif  // TESTS_ISOLATION_ISOLATED_H
