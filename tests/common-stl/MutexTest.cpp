#include "Mutex.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <thread>
#include <vector>

#include "unused/Counters.h"

namespace ZOV_SPACE {
namespace {

TEST(Condition, waitsAsLongAsItIsTold) {
    Mutex mutex;
    Condition condition(mutex);
    bool ready = false;
    condition.lock();
    EXPECT_EQ(condition.wait(1), ETIMEDOUT);
    EXPECT_EQ(condition.wait(INT_MIN), ETIMEDOUT) << "a deadline long ago";
    std::thread notifier([&] {
        const Monitor own(mutex);
        ready = true;
        condition.notifyAll();
    });
    while (!ready) EXPECT_EQ(condition.wait(INT_MAX), 0);
    condition.unlock();
    notifier.join();
}

// A waiting writer does not hold readers back. The counters are plain: a reader beside a writer, or two writers, shows
// as an odd value, a wrong sum or a report of the thread sanitizer; a lost wake-up as a test that never ends.
TEST(RWLock, keepsWritersAloneAndWakesEveryone) {
    constexpr int kThreads = 6, kRounds = 4000;
    RWLock lock;
    lock.rdlock();
    std::thread writer([&] { const WriteGuard guard(lock); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(lock.tryrdlock(), 0);
    lock.unlock();
    EXPECT_EQ(lock.trywrlock(), -1) << "one reader is left";
    lock.unlock();
    writer.join();
    int value = 0;
    const auto work = [&](int id) {
        for (int round = 0; round < kRounds; ++round) {
            const bool writes = (round + id) % 3 == 0;
            writes ? lock.wrlock() : lock.rdlock();
            if (writes) ++value;
            if (round % 16 == 0) std::this_thread::yield();
            if (writes) ++value;
            EXPECT_EQ(value % 2, 0);
            lock.unlock();
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) threads.emplace_back(work, i);
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(value, 2 * kThreads * kRounds / 3);
    EXPECT_EQ(lock.trywrlock(), 0) << "free afterwards, whoever waited";
    EXPECT_EQ(lock.tryrdlock(), -1);
    lock.unlock();
}

TEST(CountersDeathTest, blockAtZeroWrapAndStopTheProcessForCountsThatCannotBe) {
    Semaphore semaphore(1);
    EXPECT_EQ(semaphore.trywait(), 0);
    EXPECT_EQ(semaphore.trywait(), -1);
    std::thread poster([&] { EXPECT_EQ(semaphore.post(), 0); });
    EXPECT_EQ(semaphore.wait(), 0);
    poster.join();
    EXPECT_EQ(Semaphore(INT_MAX).post(), -1);
    Sequence single(INT_MAX), block(INT_MAX);
    for (int expected : {INT_MAX, 0, 0, 1}) EXPECT_EQ(single.getNext(), expected);
    for (int expected : {INT_MAX, 0, 4, 8}) EXPECT_EQ(block.getNext(4), expected);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(Semaphore(0), "Mutex:234: .*Semaphore.*`count >= 1' failed");
    EXPECT_DEATH(Sequence(-1), "Mutex:274: .*Sequence.*`initVal >= 0' failed");
    EXPECT_DEATH(Sequence(0).getNext(0), "Mutex:289: .*getNext.*`size > 0' failed");
}

}  // namespace
}  // namespace ZOV_SPACE
