// The reader/writer lock is one word: who holds it, and whether anybody waits. Taking and giving it back is one
// exchange of that word; the mutex and the two conditions are only for those who have to sleep, and those who wake
// them.
#include "Mutex.h"

#include <algorithm>
#include <ctime>
#include <limits>

namespace ZOV_SPACE {
namespace {

constexpr std::uint32_t kWriter = 0x80000000u;
constexpr std::uint32_t kWaiting = 0x40000000u;
constexpr std::uint32_t kAnyHolder = ~kWaiting;

}  // namespace

int Mutex::lock() VOLE_NO_THREAD_ANALYSIS { return pthread_mutex_lock(&_mutex); }

int Mutex::trylock() VOLE_NO_THREAD_ANALYSIS { return pthread_mutex_trylock(&_mutex); }

int Mutex::unlock() VOLE_NO_THREAD_ANALYSIS { return pthread_mutex_unlock(&_mutex); }

Monitor::Monitor(Mutex& mutex) : _mutex(&mutex) { _mutex->lock(); }

Monitor::~Monitor() VOLE_NO_THREAD_ANALYSIS { _mutex->unlock(); }

Condition::~Condition() { pthread_cond_destroy(&_condition); }

int Condition::wait() { return pthread_cond_wait(&_condition, &_mutex->_mutex); }

int Condition::wait(int seconds) {
    // In 64 bits: where time_t has 32, the sum of today and a long wait does not fit.
    const std::int64_t until = static_cast<std::int64_t>(std::time(nullptr)) + seconds;
    timespec deadline{};
    deadline.tv_sec = static_cast<std::time_t>(std::min<std::int64_t>(until, std::numeric_limits<std::time_t>::max()));
    return pthread_cond_timedwait(&_condition, &_mutex->_mutex, &deadline);
}

int Condition::notify() { return pthread_cond_signal(&_condition); }

int Condition::notifyAll() { return pthread_cond_broadcast(&_condition); }

int Condition::lock() VOLE_NO_THREAD_ANALYSIS { return _mutex->lock(); }

int Condition::unlock() VOLE_NO_THREAD_ANALYSIS { return _mutex->unlock(); }

// Why no wake-up is lost: a waiter holds _mutex from before it announces itself until it sleeps, and it announces
// itself in the same word that says who holds the lock. Whoever changes that word afterwards sees kWaiting, and by
// taking _mutex before it notifies comes after the waiter has gone to sleep. Only the last waiter, awake and holding
// _mutex, takes kWaiting back.

int RWLock::tryrdlock() VOLE_NO_THREAD_ANALYSIS {
    std::uint32_t state = _state.load(std::memory_order_relaxed);
    while (!(state & kWriter)) {
        if (_state.compare_exchange_weak(state, state + 1, std::memory_order_acquire, std::memory_order_relaxed)) {
            return 0;
        }
    }
    return -1;
}

int RWLock::trywrlock() VOLE_NO_THREAD_ANALYSIS {
    std::uint32_t state = _state.load(std::memory_order_relaxed);
    while (!(state & kAnyHolder)) {
        if (_state.compare_exchange_weak(state, state | kWriter, std::memory_order_acquire,
                                         std::memory_order_relaxed)) {
            return 0;
        }
    }
    return -1;
}

int RWLock::rdlock() VOLE_NO_THREAD_ANALYSIS {
    return tryrdlock() == 0 ? 0 : waitFor(_readersCondition, &RWLock::tryrdlock);
}

int RWLock::wrlock() VOLE_NO_THREAD_ANALYSIS {
    return trywrlock() == 0 ? 0 : waitFor(_writersCondition, &RWLock::trywrlock);
}

int RWLock::waitFor(Condition& condition, int (RWLock::*tryLock)()) {
    const std::uint32_t busyMask = tryLock == &RWLock::tryrdlock ? kWriter : kAnyHolder;
    const Monitor guard(_mutex);
    ++_waiters;
    while ((this->*tryLock)() != 0) {
        if (announceWaiter(busyMask)) condition.wait();
    }
    if (--_waiters == 0) _state.fetch_and(~kWaiting, std::memory_order_relaxed);
    return 0;
}

// Sets kWaiting while the lock is busy; false when it is no longer.
bool RWLock::announceWaiter(std::uint32_t busyMask) {
    std::uint32_t state = _state.load(std::memory_order_relaxed);
    while (state & busyMask) {
        if (_state.compare_exchange_weak(state, state | kWaiting, std::memory_order_relaxed)) return true;
    }
    return false;
}

int RWLock::unlock() VOLE_NO_THREAD_ANALYSIS {
    const bool asWriter = _state.load(std::memory_order_relaxed) & kWriter;
    const std::uint32_t before = _state.fetch_sub(asWriter ? kWriter : 1, std::memory_order_release);
    const bool nowFree = asWriter || (before & kAnyHolder) == 1;
    if (!nowFree || !(before & kWaiting)) return 0;

    const Monitor guard(_mutex);
    _writersCondition.notify();
    if (asWriter) _readersCondition.notifyAll();
    return 0;
}

}  // namespace ZOV_SPACE
