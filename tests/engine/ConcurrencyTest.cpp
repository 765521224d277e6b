// Scans, queries and settings from many threads while another one reloads, loads and unloads.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "PatternSlot.h"
#include "support/SignatureText.h"
#include "support/TempDir.h"
#include "voleeng.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kDuration = std::chrono::milliseconds(700);
constexpr auto kLimit = std::chrono::seconds(20);  // For what a busy machine has not got round to by then.

const std::string kSample = "A sample\nthat both sets of signatures know.\n";

// A set whose verdicts all bear its name.
class PatternSet : public TempDir {
public:
    explicit PatternSet(const std::string& name) {
        std::string records;
        for (int i = 0; i < 300; ++i) records += md5Record(std::to_string(i), "Other-" + name);
        write("a.hdb", records + md5Record(kSample, "Md5-" + name));
        write("b.chk", startRecord(kSample.substr(0, 40), "Sum-" + name));
        write("pattern_assistant.xml", "<r><FalseAlarm><i name='Fa-" + name + "'/></FalseAlarm><Spyware><i name='Spy-" +
                                           name + "'/></Spyware></r>");
    }
};

// True for kDuration, and up to kLimit for as long as the goal is not reached.
template <class Goal>
bool goOn(Clock::time_point start, Goal reached) {
    const auto elapsed = Clock::now() - start;
    return elapsed < kDuration || (elapsed < kLimit && !reached());
}

class ConcurrencyTest : public testing::Test {
protected:
    ConcurrencyTest() { freeResource(); }
    ~ConcurrencyTest() override {
        finish();
        VoleDebugger silent{0, nullptr, {}};
        setDebugger(&silent);
        setDumpPath(nullptr);
        freeResource();
    }

    // A thread that repeats the action until finish().
    template <class Action>
    void repeat(Action action) {
        threads.emplace_back([this, action]() mutable {
            while (!over.load(std::memory_order_relaxed)) action();
        });
    }
    void finish() {
        over = true;
        for (std::thread& thread : threads) thread.join();
        threads.clear();
    }

    void note(const std::string& verdict) {
        const std::lock_guard guard(mutex);
        verdicts.insert(verdict);
    }
    std::size_t kinds() {
        const std::lock_guard guard(mutex);
        return verdicts.size();
    }
    void startCrowd() {
        for (const std::string& content : {kSample, kSample + " but only its start"}) {
            repeat([this, path = samples.write(std::to_string(content.size()), content)] {
                std::string virus = "clean", text;
                const int result = scanFile(path.c_str(), virus, text);
                note(result == 0 || result == 1 ? virus : "code " + std::to_string(result));
            });
        }
        // As long as a slot is held, it is one whole set.
        repeat([this] {
            const SlotLease slot = SlotLease::acquire();
            for (int i = 0; slot && i < 100; ++i) {
                const bool isOne = slot->paList->isFalseAlarm("fa-one");
                const bool isTwo = slot->paList->isFalseAlarm("fa-two");
                if (isOne == isTwo) note(isOne ? "both" : "neither");
            }
        });
        // The same entries in changing letter case, which they take over.
        for (const char* name : {"spy-one.x", "SPY-ONE.X", "Spy-Two.x", "sPY-tWO.x"})
            repeat([name] { IsSpyware(name); });
        repeat([turn = 0U]() mutable {
            ++turn;
            VoleDebugger record{static_cast<int>(turn % 4), turn % 8 < 4 ? +[](const char*) {} : nullptr, {}};
            setDebugger(&record);
            setDumpPath(turn % 2 ? "/a/dump/directory/with/a/long/name" : nullptr);
        });
    }

    PatternSet one{"One"}, two{"Two"};
    TempDir samples;
    std::string message;
    std::mutex mutex;
    std::set<std::string> verdicts;
    std::atomic<bool> over = false;
    std::vector<std::thread> threads;
};

TEST_F(ConcurrencyTest, reloadsChangeVerdictsButNeverSpoilThem) {
    ASSERT_EQ(init(one.path().c_str(), message), 0) << message;
    startCrowd();
    int done = 0;
    const auto start = Clock::now();
    while (goOn(start, [&] { return done > 10 && kinds() == 4; })) {
        const int result = reload((done % 2 == 0 ? two : one).path().c_str(), message);
        ASSERT_TRUE(result == 0 || result == -472) << result;
        done += result == 0;
    }
    finish();
    EXPECT_EQ(verdicts, (std::set<std::string>{"Md5-One", "Md5-Two", "Sum-One", "Sum-Two"}));
    EXPECT_GT(done, 10);

    for (const PatternSet* set : {&two, &one}) EXPECT_EQ(reload(set->path().c_str(), message), 0) << "no slot was lost";
    EXPECT_EQ(IsFalseAlarm("fa-one"), 1);
    EXPECT_EQ(IsFalseAlarm("fa-two"), 0);
}

TEST_F(ConcurrencyTest, unloadingUnderScansOnlyMakesThemFindNothing) {
    startCrowd();
    int rounds = 0;
    const auto start = Clock::now();
    for (; goOn(start, [&] { return rounds > 10 && kinds() > 1; }); ++rounds) {
        ASSERT_EQ(init((rounds % 2 == 0 ? one : two).path().c_str(), message), 0);
        std::this_thread::sleep_for(std::chrono::microseconds(rounds % 5 * 100));
        ASSERT_EQ(freeResource(), 0);
        ASSERT_EQ(reload(one.path().c_str(), message), -473);
    }
    finish();
    const std::set<std::string> known{"clean", "Md5-One", "Md5-Two", "Sum-One", "Sum-Two"};
    for (const std::string& verdict : verdicts) EXPECT_TRUE(known.contains(verdict)) << verdict;
    EXPECT_GT(verdicts.size(), 1U) << "some scans met loaded signatures";
    EXPECT_GT(rounds, 10);
}

// A cancelled scan must not take the process with it, and must give its slot back.
TEST_F(ConcurrencyTest, aCancelledScanLeavesTheEngineUsable) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers do not understand the unwinding of a cancelled thread";
#else
    const std::string path = samples.write("sample", kSample);
    ASSERT_EQ(init(one.path().c_str(), message), 0);
    for (int turn = 0; turn < 100; ++turn) {
        pthread_t thread;
        const auto scanForever = [](void* file) -> void* {
            std::string virus, text;
            for (;;) scanFile(static_cast<const char*>(file), virus, text);
        };
        ASSERT_EQ(pthread_create(&thread, nullptr, scanForever, const_cast<char*>(path.c_str())), 0);
        std::this_thread::sleep_for(std::chrono::microseconds(turn * 20));
        ASSERT_EQ(pthread_cancel(thread), 0);
        ASSERT_EQ(pthread_join(thread, nullptr), 0);
    }
    for (int i = 0; i < 2; ++i) EXPECT_EQ(reload(one.path().c_str(), message), 0) << message;
#endif
}

}  // namespace
