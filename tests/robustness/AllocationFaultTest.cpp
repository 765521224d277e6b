// Every allocation of init(), reload() and scanFile() fails in turn: alone, and with all that follow it.
#include <gtest/gtest.h>

#include <iostream>
#include <set>

#include "Faults.h"
#include "PatternSlot.h"
#include "Scene.h"
#include "support/OwnProcess.h"

namespace {

using faults::Plan;
using faults::Target;

constexpr Plan kPlans[] = {{Target::allocations}, {Target::allocations, 0, true}};

const std::set<int> kScanCodes{VOLE_FOUND,    VOLE_CLEAN,       VOLE_OUT_OF_MEMORY, VOLE_SCAN_FAILED,
                               VOLE_NO_ENTRY, VOLE_CANNOT_READ, VOLE_CANNOT_OPEN};
const std::set<int> kLoadCodes{0, VOLE_OUT_OF_MEMORY, VOLE_INVALID_PATTERN, VOLE_INVALID_LIST, VOLE_INVALID_DIRECTORY};

void say(const std::string& what, unsigned failed, const Plan& plan) {
    std::cout << "[   FAULTS ] " << what << ": " << failed << " allocations failed in turn"
              << (plan.lasting ? ", with all behind" : "") << "\n";
}

class AllocationFaults : public testing::Test {
protected:
    AllocationFaults() {
        freeResource();
        scene::writePatterns(one, "One");
        scene::writePatterns(two, "Two");
        for (const scene::Content& content : scene::contents()) files.write(content.name, content.bytes);
    }
    ~AllocationFaults() override { freeResource(); }

    std::string scanned(const std::string& name) const { return scene::verdictOf((files / name).string()); }

public:
    // What is active is all of the set.
    void expectWhole(const std::string& set) const {
        for (const char* name : {"text", "check-sum", "PE"}) ASSERT_TRUE(scanned(name).ends_with(set)) << scanned(name);
        ASSERT_EQ(IsFalseAlarm(("fa-" + set).c_str()), 1);
        ASSERT_EQ(IsSpyware(("spy-" + set + "-and-more").c_str()), 1);
    }

protected:
    TempDir one, two, files;
    std::string message;
    scene::ErrorCount errors;
};

TEST_F(AllocationFaults, inAScan) {
    ASSERT_EQ(init(one.path().c_str(), message), 0);
    for (const scene::Content& content : scene::contents()) {
        const std::string path = (files / content.name).string(), verdict = content.verdict + "-One";
        ASSERT_EQ(scene::verdictOf(path), verdict);
        for (const Plan& kind : kPlans) {
            const unsigned failed = faults::inTurn(kind, [&](const Plan& plan) {
                std::string virus, text;
                errors.taken();
                faults::begin(plan);
                const int code = scanFile(path.c_str(), virus, text);
                const unsigned met = faults::end();
                EXPECT_TRUE(kScanCodes.contains(code)) << code;
                EXPECT_TRUE(code != VOLE_FOUND || virus == verdict) << virus;
                EXPECT_TRUE(code != VOLE_CLEAN || errors.taken() > 0) << "clean without a word";
                EXPECT_EQ(scene::verdictOf(path), verdict) << "the next scan";
                if (!HasFailure()) return met;
                ADD_FAILURE() << content.name << ", allocation " << plan.first << ", lasting " << plan.lasting;
                return faults::kStop;
            });
            say(content.name, failed, kind);
            ASSERT_GT(failed, 4U);
        }
    }
}

TEST_F(AllocationFaults, inAReload) {
    ASSERT_EQ(init(one.path().c_str(), message), 0);
    for (const Plan& kind : kPlans) {
        const unsigned failed = faults::inTurn(kind, [&](const Plan& plan) {
            const PatternSlot* const before = activeSlot;
            faults::begin(plan);
            const int code = reload(two.path().c_str(), message);
            const unsigned met = faults::end();
            EXPECT_TRUE(kLoadCodes.contains(code)) << code;
            EXPECT_EQ(activeSlot != before, code == 0);
            expectWhole(code == 0 ? "Two" : "One");
            EXPECT_EQ(reload(one.path().c_str(), message), 0) << "the next reload";
            expectWhole("One");
            if (!HasFailure()) return met;
            ADD_FAILURE() << "allocation " << plan.first << ", lasting " << plan.lasting << ": " << code;
            return faults::kStop;
        });
        say("reload", failed, kind);
        ASSERT_GT(failed, 50U);
    }
}

// init() goes on with what could be loaded, so a set may lack a part, but not without a message.
void initInTurn(const AllocationFaults& faulty, const std::string& directory, const char* what, unsigned usualLines) {
    for (const Plan& kind : kPlans) {
        const unsigned failed = faults::inTurn(kind, [&](const Plan& plan) {
            std::string message;
            scene::ErrorCount::taken();
            faults::begin(plan);
            const int code = init(directory.c_str(), message);
            const unsigned met = faults::end();
            EXPECT_TRUE(kLoadCodes.contains(code)) << code;
            if (code == 0 && scene::ErrorCount::taken() == usualLines) faulty.expectWhole("One");
            freeResource();
            EXPECT_EQ(init(directory.c_str(), message), 0) << "the next init";
            faulty.expectWhole("One");
            freeResource();
            if (!testing::Test::HasFailure()) return met;
            ADD_FAILURE() << "allocation " << plan.first << ", lasting " << plan.lasting << ": " << code;
            return faults::kStop;
        });
        say(what, failed, kind);
        ASSERT_GT(failed, 50U);
    }
}

TEST_F(AllocationFaults, inAnInit) {
    initInTurn(*this, one.path().string(), "init", 2);  // There are two lines about the missing plug-in.
    inOwnProcess([&] {
        std::filesystem::copy_file(VOLE_TEST_PLUGIN_GOOD, one / "libheueng.so");
        one.write("heueng.ini", "0 100 null");  // It makes no instance, so that each init() asks it again.
        initInTurn(*this, one.path().string(), "init with plug-in", 0);
    });
}

}  // namespace
