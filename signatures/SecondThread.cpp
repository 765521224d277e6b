#include "SecondThread.h"

#include <csignal>
#include <utility>

#include "NoCancel.h"

SecondThread::SecondThread() {
    sigset_t all, before;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    const auto start = [](void* self) -> void* {
        static_cast<SecondThread*>(self)->run();
        return nullptr;
    };
    _isRunning = ::pthread_create(&_thread, nullptr, start, this) == 0;
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

SecondThread::~SecondThread() {
    if (!_isRunning) return;
    const ZOV_SPACE::NoCancel guard;
    {
        const std::lock_guard lock(_mutex);
        _ends = true;
    }
    _forThread.notify_one();
    ::pthread_join(_thread, nullptr);
}

void SecondThread::post(Work job) {
    const std::lock_guard lock(_mutex);
    if (_thrown) std::rethrow_exception(_thrown);
    _jobs.push_back(std::move(job));
    _forThread.notify_one();
}

void SecondThread::finish() {
    std::unique_lock lock(_mutex);
    _forLoader.wait(lock, [this] { return _jobs.empty() && !_isBusy; });
    if (_thrown) std::rethrow_exception(_thrown);
}

void SecondThread::offer(Work work) {
    const std::lock_guard lock(_mutex);
    _offered = std::move(work);
    _hasOffered = true;
    _forThread.notify_one();
}

void SecondThread::settle() {
    std::unique_lock lock(_mutex);
    if (!_offered) return _forLoader.wait(lock, [this] { return !_hasOffered; });
    const Work work = std::exchange(_offered, nullptr);
    _hasOffered = false;
    lock.unlock();
    work();
}

void SecondThread::withdraw() {
    const ZOV_SPACE::NoCancel guard;  // Destructors call this.
    std::unique_lock lock(_mutex);
    if (std::exchange(_offered, nullptr)) _hasOffered = false;
    _forLoader.wait(lock, [this] { return !_hasOffered; });
}

void SecondThread::run() {
    std::unique_lock lock(_mutex);
    for (;;) {
        _forThread.wait(lock, [this] { return _ends || !_jobs.empty() || _offered; });
        if (_ends) return;
        _isBusy = true;
        if (_jobs.empty()) {
            doOffered(lock);
        } else {
            doJob(lock);
        }
        _isBusy = false;
        _forLoader.notify_one();
    }
}

void SecondThread::doJob(std::unique_lock<std::mutex>& lock) {
    Work job = std::move(_jobs.front());
    _jobs.pop_front();
    lock.unlock();
    std::exception_ptr thrown;
    try {
        job();
    } catch (...) {
        thrown = std::current_exception();
    }
    job = nullptr;  // What it held goes while nobody waits for the lock.
    lock.lock();
    if (!thrown) return;
    _thrown = thrown;
    _jobs.clear();
}

void SecondThread::doOffered(std::unique_lock<std::mutex>& lock) {
    const Work work = std::exchange(_offered, nullptr);
    lock.unlock();
    work();
    lock.lock();
    _hasOffered = false;
}
