// SecondThread: a thread that helps with one load. It does jobs in their order, and, while there are none, work that
// the loading thread would have to do itself otherwise.
//   Owns:    the thread, which blocks all signals, and what it was given to do.
//   Throws:  std::bad_alloc from post() and offer(); post() and finish() what a job threw.
//   Threads: all functions are for the thread that made it.
#ifndef SIGNATURES_SECONDTHREAD_H
#define SIGNATURES_SECONDTHREAD_H

#include <pthread.h>

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>

class SecondThread {
public:
    using Work = std::function<void()>;

    SecondThread();
    SecondThread(const SecondThread&) = delete;
    SecondThread& operator=(const SecondThread&) = delete;
    // Waits for what is being done, and drops the rest.
    ~SecondThread();

    // Whether the system let it begin. If not, nothing else may be called.
    explicit operator bool() const { return _isRunning; }

    // Once a job has thrown, it throws that, and no further one is done.
    void post(Work job);
    // Waits for the end of all jobs, then throws what one of them threw.
    void finish();

    // Work that settle() does if the thread has not begun with it. One at a time. Must not throw.
    void offer(Work work);
    // Waits for the end of what was offered, or does it. Does nothing when nothing was.
    void settle();
    // Waits for the end of what was offered, or has nobody do it.
    void withdraw();

private:
    void run();
    void doJob(std::unique_lock<std::mutex>& lock);
    void doOffered(std::unique_lock<std::mutex>& lock);

    bool _isRunning = false;
    pthread_t _thread{};
    std::mutex _mutex;  // Guards what follows.
    std::condition_variable _forThread;
    std::condition_variable _forLoader;
    std::deque<Work> _jobs;
    Work _offered;
    std::exception_ptr _thrown;
    bool _isBusy = false;  // With a job, or with what was offered.
    bool _hasOffered = false;
    bool _ends = false;
};

#endif  // SIGNATURES_SECONDTHREAD_H
