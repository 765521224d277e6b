#include "Mutex.h"

#include <algorithm>
#include <ctime>
#include <limits>

// The platform's own header hides it when NDEBUG is set, and these checks stay in release builds.
extern "C" void __assert_fail(const char* assertion, const char* file, unsigned int line, const char* function) noexcept
    __attribute__((__noreturn__));

namespace ZOV_SPACE {
namespace {

constexpr std::uint32_t kWriter = 0x80000000u;
constexpr std::uint32_t kWaiting = 0x40000000u;
constexpr std::uint32_t kAnyHolder = ~kWaiting;

void require(bool holds, const char* text, unsigned int line, const char* function) {
    if (!holds) __assert_fail(text, "Mutex", line, function);
}

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

Semaphore::Semaphore(int count) : _count(count), _condition(_mutex) {
    require(count >= 1, "count >= 1", 234, __func__);
}

int Semaphore::wait() {
    const Monitor guard(_mutex);
    while (_count < 1) _condition.wait();
    --_count;
    return 0;
}

int Semaphore::trywait() {
    const Monitor guard(_mutex);
    if (_count < 1) return -1;
    --_count;
    return 0;
}

int Semaphore::post() {
    const Monitor guard(_mutex);
    if (_count == std::numeric_limits<int>::max()) return -1;
    ++_count;
    if (_count > 0) _condition.notify();
    return 0;
}

Sequence::Sequence(int initVal) : _next(initVal) { require(initVal >= 0, "initVal >= 0", 274, __func__); }

int Sequence::getNext() { return advance(1, 0); }

int Sequence::getNext(unsigned int size) {
    require(size > 0, "size > 0", 289, __func__);
    return advance(size, size);
}

int Sequence::advance(unsigned int step, unsigned int nextAfterWrap) {
    const Monitor guard(_mutex);
    const int first = _next;
    // Kept as is: after a wrap a single step stores 0 again, so that 0 is handed out twice.
    const bool wrapped = first < 0;
    _next = static_cast<int>(wrapped ? nextAfterWrap : static_cast<unsigned int>(first) + step);
    return wrapped ? 0 : first;
}

}  // namespace ZOV_SPACE
