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
    // Loads nothing but these records of an ".hdb" file.
    void know(const std::string& records) {
        freeResource();
        const TempDir patterns;
        patterns.write("a.hdb", records);
        ASSERT_EQ(load(patterns), 0) << message;
    }
    // The verdict on a file of that content.
    std::string scan(const std::string& content) const { return verdictOf(samples.write("sample", content)); }
    // Without the path of the samples' folder.
    std::string withoutFolder(std::string text) const {
        const std::string folder = samples.path();
        for (std::size_t at; (at = text.find(folder)) != std::string::npos;) text.erase(at, folder.size());
        return text;
    }

    TempDir samples;
    std::string message = "untouched";
};

#endif  // TESTS_SUPPORT_ENGINETEST_H
