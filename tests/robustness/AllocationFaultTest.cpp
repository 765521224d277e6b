// Every allocation of init(), reload() and scanFile() fails in turn: alone, and with all that follow it.
#include <iostream>
#include <set>

#include "Faults.h"
#include "PatternSlot.h"
#include "Scene.h"
#include "support/EngineTest.h"
#include "support/OwnProcess.h"

namespace {

using faults::Plan;
using faults::Target;

const std::set<int> kScanCodes{VOLE_FOUND,    VOLE_CLEAN,       VOLE_OUT_OF_MEMORY, VOLE_SCAN_FAILED,
                               VOLE_NO_ENTRY, VOLE_CANNOT_READ, VOLE_CANNOT_OPEN};
const std::set<int> kLoadCodes{0, VOLE_OUT_OF_MEMORY, VOLE_INVALID_PATTERN, VOLE_INVALID_LIST, VOLE_INVALID_DIRECTORY};

// Carries out attempt(plan) under every plan; it returns the number of allocations that there were.
template <class Attempt>
void failInTurn(const std::string& what, unsigned atLeast, Attempt attempt) {
    for (const bool lasting : {false, true}) {
        const unsigned failed = faults::inTurn(what, {Target::allocations, 0, lasting}, attempt);
        std::cout << "[   FAULTS ] " << what << ": " << failed << " allocations failed in turn"
                  << (lasting ? ", with all behind" : "") << "\n";
        ASSERT_GT(failed, atLeast);
    }
}

class AllocationFaults : public EngineTest {
protected:
    AllocationFaults() {
        scene::writePatterns(one, "One");
        scene::writePatterns(two, "Two");
        for (const scene::Content& content : scene::contents()) samples.write(content.name, content.bytes);
    }

    // What is active is all of the set.
    void expectWhole(const std::string& set) const {
        for (const char* name : {"text", "check-sum", "PE"}) {
            const std::string verdict = verdictOf(samples / name);
            ASSERT_TRUE(verdict.ends_with(set)) << name << ": " << verdict;
        }
        ASSERT_EQ(IsFalseAlarm(("fa-" + set).c_str()), 1);
        ASSERT_EQ(IsSpyware(("spy-" + set + "-and-more").c_str()), 1);
    }

    // init() goes on with what could be loaded, so a set may lack a part, but not without a message.
    void initInTurn(const char* what, unsigned usualLines) {
        failInTurn(what, 50, [&](const Plan& plan) {
            errors.taken();
            faults::begin(plan);
            const int code = load(one);
            const unsigned met = faults::end();
            EXPECT_TRUE(kLoadCodes.contains(code)) << code;
            if (code == 0 && errors.taken() == usualLines) expectWhole("One");
            freeResource();
            EXPECT_EQ(load(one), 0) << "the next init";
            expectWhole("One");
            freeResource();
            return met;
        });
    }

    TempDir one, two;
    scene::ErrorCount errors;
};

TEST_F(AllocationFaults, inAScan) {
    ASSERT_EQ(load(one), 0);
    for (const scene::Content& content : scene::contents()) {
        const std::string path = samples / content.name, verdict = content.verdict + "-One";
        failInTurn(content.name, 4, [&](const Plan& plan) {
            std::string virus, text;
            errors.taken();
            faults::begin(plan);
            const int code = scanFile(path.c_str(), virus, text);
            const unsigned met = faults::end();
            EXPECT_TRUE(kScanCodes.contains(code)) << code;
            EXPECT_TRUE(code != VOLE_FOUND || virus == verdict) << virus;
            EXPECT_TRUE(code != VOLE_CLEAN || errors.taken() > 0) << "clean without a word";
            EXPECT_EQ(verdictOf(path), verdict) << "the next scan";
            return met;
        });
    }
}

TEST_F(AllocationFaults, inAReload) {
    ASSERT_EQ(load(one), 0);
    failInTurn("reload", 50, [&](const Plan& plan) {
        const PatternSlot* const before = activeSlot;
        faults::begin(plan);
        const int code = loadAnew(two);
        const unsigned met = faults::end();
        EXPECT_TRUE(kLoadCodes.contains(code)) << code;
        EXPECT_EQ(activeSlot != before, code == 0);
        expectWhole(code == 0 ? "Two" : "One");
        EXPECT_EQ(loadAnew(one), 0) << "the next reload";
        expectWhole("One");
        return met;
    });
}

TEST_F(AllocationFaults, inAnInit) {
    initInTurn("init", 2);  // There are two lines about the missing plug-in.
    inOwnProcess([&] {
        std::filesystem::copy_file(VOLE_TEST_PLUGIN_GOOD, one / "libheueng.so");
        one.write("heueng.ini", "0 100 null");  // It makes no instance, so that each init() asks it again.
        initInTurn("init with plug-in", 0);
    });
}

}  // namespace
