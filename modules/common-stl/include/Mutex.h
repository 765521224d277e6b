// Mutex.h: mutual exclusion and waiting for the threads of one process. None of these classes creates
// threads, and nothing throws: results are POSIX results (0 on success) or -1. Unless a class says otherwise, every
// operation is safe from any thread; destroying an object while another thread is still inside one of its operations
// is not.
#ifndef COMMON_STL_MUTEX_H
#define COMMON_STL_MUTEX_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "CPObject.h"
#include "ThreadAnnotations.h"

namespace ZOV_SPACE {

// Not recursive. Constant-initialised, so that an object of static storage works before any constructor has run
// (`constinit Mutex guard;`), and never taken down, so that it still works while the process exits.
class VOLE_CAPABILITY("mutex") Mutex : public CPObject {
public:
    constexpr Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    int lock() VOLE_ACQUIRE();
    int trylock() VOLE_TRY_ACQUIRE(0);  // EBUSY when it is held.
    int unlock() VOLE_RELEASE();

private:
    friend class Condition;
    pthread_mutex_t _mutex = PTHREAD_MUTEX_INITIALIZER;
};

// Holds a mutex, which it borrows, for the length of a scope.
class VOLE_SCOPED_CAPABILITY Monitor : public CPObject {
public:
    explicit Monitor(Mutex& mutex) VOLE_ACQUIRE(mutex);
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;
    ~Monitor() override VOLE_RELEASE();

private:
    Mutex* _mutex;
};

// Borrows its mutex. Waiting may end without a notification: test the awaited state in a loop.
class Condition : public CPObject {
public:
    explicit constexpr Condition(Mutex& mutex) : _mutex(&mutex) {}
    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;
    ~Condition() override;

    // REQUIRES: the caller holds the mutex.
    int wait();
    // Waits until the calendar time, in whole seconds, is `seconds` later than now: up to one second less than asked
    // for. ETIMEDOUT when nothing came. REQUIRES: the caller holds the mutex.
    int wait(int seconds);
    int notify();
    int notifyAll();

    // Those of the mutex.
    int lock();
    int unlock();

private:
    pthread_cond_t _condition = PTHREAD_COND_INITIALIZER;
    Mutex* _mutex;
};

// Many readers or one writer. Readers are not held back by waiting writers, so a stream of readers can keep a writer
// waiting: a thread that holds a read lock may take another one without deadlock. Not recursive for writers.
//
// Taking and releasing a lock that nobody waits for is one atomic operation.
class VOLE_CAPABILITY("rwlock") RWLock : public CPObject {
public:
    constexpr RWLock() : _writersCondition(_mutex), _readersCondition(_mutex) {}
    RWLock(const RWLock&) = delete;
    RWLock& operator=(const RWLock&) = delete;

    int rdlock() VOLE_ACQUIRE_SHARED();          // 0
    int tryrdlock() VOLE_TRY_ACQUIRE_SHARED(0);  // -1 when a writer holds the lock.
    int wrlock() VOLE_ACQUIRE();                 // 0
    int trywrlock() VOLE_TRY_ACQUIRE(0);         // -1 when anyone holds the lock.
    // Gives back the writer's hold when there is one, else one reader's. REQUIRES: the caller holds the lock.
    int unlock() VOLE_RELEASE_GENERIC();  // 0

private:
    int waitFor(Condition& condition, int (RWLock::*tryLock)());
    bool announceWaiter(std::uint32_t busyMask);

    // kWriter, or the number of readers; kWaiting besides when _waiters is not 0.
    std::atomic<std::uint32_t> _state = 0;
    std::uint32_t _waiters VOLE_GUARDED_BY(_mutex) = 0;
    Mutex _mutex;
    Condition _writersCondition;
    Condition _readersCondition;
};

// Hold an RWLock, which they borrow, for the length of a scope.
class VOLE_SCOPED_CAPABILITY ReadGuard {
public:
    explicit ReadGuard(RWLock& lock) VOLE_ACQUIRE_SHARED(lock) : _lock(lock) { _lock.rdlock(); }
    ReadGuard(const ReadGuard&) = delete;
    ReadGuard& operator=(const ReadGuard&) = delete;
    ~ReadGuard() VOLE_RELEASE_GENERIC() { _lock.unlock(); }

private:
    RWLock& _lock;
};

class VOLE_SCOPED_CAPABILITY WriteGuard {
public:
    explicit WriteGuard(RWLock& lock) VOLE_ACQUIRE(lock) : _lock(lock) { _lock.wrlock(); }
    WriteGuard(const WriteGuard&) = delete;
    WriteGuard& operator=(const WriteGuard&) = delete;
    ~WriteGuard() VOLE_RELEASE() { _lock.unlock(); }

private:
    RWLock& _lock;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_MUTEX_H
