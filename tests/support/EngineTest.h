// EngineTest: a fixture for tests of the loaded engine. They begin with nothing loaded, and leave nothing behind.
#ifndef TESTS_SUPPORT_ENGINETEST_H
#define TESTS_SUPPORT_ENGINETEST_H

#include <gtest/gtest.h>

#include <string>

#include "VoleOptions.h"
#include "support/TempDir.h"
#include "support/Verdict.h"
#include "voleeng.h"

inline constexpr OptionValues kDefaultLimits{VoleOptions::DefaultMaxEntries, VoleOptions::DefaultMaxRatio,
                                             VoleOptions::DefaultMaxLevelEntries, VoleOptions::DefaultMaxDepth,
                                             VoleOptions::DefaultMaxSize};

class EngineTest : public testing::Test {
protected:
    EngineTest() { freeResource(); }
    ~EngineTest() override {
        VoleDebugger silent{0, nullptr, {}};
        setDebugger(&silent);
        setDumpPath(nullptr);
        VoleOptions::set(kDefaultLimits);
        freeResource();
    }

    int load(const TempDir& patterns) { return init(patterns.path().c_str(), message); }
    int loadAnew(const TempDir& patterns) { return reload(patterns.path().c_str(), message); }
    // The verdict on a file of that content.
    std::string scan(const std::string& content) const { return verdictOf(samples.write("sample", content)); }

    TempDir samples;
    std::string message = "untouched";
};

#endif  // TESTS_SUPPORT_ENGINETEST_H
