#include "Workers.h"

#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "Interruption.h"
#include "Messages.h"

namespace {

constexpr std::size_t kTogether = 128;  // Targets fetched, and reports handed on, at once.
constexpr std::size_t kFewTargets = 64;
// What may wait for one slow scan: many small files fit into the time of a large one.
constexpr std::size_t kMostSlots = 65536;
constexpr std::size_t kMostBytesWaiting = 16 * 1024 * 1024;

std::size_t memoryOf(const MemberPath& path) {
    std::size_t bytes = 0;
    for (const std::string& name : path) bytes += sizeof(std::string) + name.capacity();
    return bytes;
}

std::size_t memoryOf(const FileReport& report) {
    std::size_t bytes = report.path.capacity() + report.error.capacity();
    for (const Finding& finding : report.findings) {
        bytes += sizeof finding + finding.name.capacity() + memoryOf(finding.member);
    }
    for (const Reason& reason : report.reasons) {
        bytes += sizeof reason + reason.text.capacity() + memoryOf(reason.member);
    }
    return bytes;
}

FileReport reportOf(FileScanner& scanner, const Target& target) {
    FileReport report;
    report.error = target.error;
    try {
        if (report.error.empty()) return scanner.scan(target);
    } catch (const std::bad_alloc&) {
        report.error = kMemoryRanOut;
    }
    report.path = target.path;
    report.outcome = Outcome::failed;
    return report;
}

// What is done under the lock takes less time than putting a thread to sleep and waking it: try for some microseconds.
std::unique_lock<std::mutex> lockSoon(std::mutex& mutex) {
    constexpr int kTries = 200;
    std::unique_lock lock(mutex, std::try_to_lock);
    for (int i = 0; i < kTries && !lock.owns_lock(); ++i) {
        __builtin_ia32_pause();
        static_cast<void>(lock.try_lock());
    }
    if (!lock.owns_lock()) lock.lock();
    return lock;
}

}  // namespace

void Workers::run(const std::vector<std::unique_ptr<FileScanner>>& scanners) {
    std::vector<std::thread> threads;
    {
        const SignalsBlocked blocked;
        try {
            for (std::size_t i = 1; i < scanners.size(); ++i) {
                threads.emplace_back([this, &scanner = *scanners[i]] { work(scanner); });
            }
        } catch (const std::system_error&) {
            // The system gives no more threads; those that there are do the work.
        }
    }
    work(*scanners.front());
    for (std::thread& thread : threads) thread.join();
    if (_failure) std::rethrow_exception(_failure);
}

void Workers::work(FileScanner& scanner) {
    try {
        for (Slot* slot = next(nullptr); slot; slot = next(slot)) {
            slot->report = reportOf(scanner, slot->target);
            slot->bytes = memoryOf(slot->report);
            slot->target = {};
        }
    } catch (...) {
        fail(std::current_exception());
    }
}

// Gives back a slot that was scanned, if any, and takes the next; null when this thread is done. One call for both, as
// for small files the lock is what threads meet at most.
Workers::Slot* Workers::next(Slot* scanned) {
    Lock lock = lockSoon(_mutex);
    if (scanned) {
        scanned->done = true;
        _bytesWaiting += scanned->bytes;
        if (!_handingOn) handOn(lock);
    }
    while (!_stopped && !isInterrupted()) {
        if (mayFetch()) {
            fetch(lock);
        } else if (_taken < _slots.size()) {
            return &_slots[_taken++];
        } else if (_exhausted) {
            return nullptr;
        } else {
            _changed.wait(lock);
        }
    }
    _changed.notify_all();
    return nullptr;
}

bool Workers::mayFetch() const {
    const bool room = _slots.size() < kMostSlots && _bytesWaiting + _slots.size() * sizeof(Slot) < kMostBytesWaiting;
    // A source that gave fewer than it was asked for has them wait for it: what there is goes first.
    const std::size_t few = _sourceIsSlow ? 1 : kFewTargets;
    return !_fetching && !_exhausted && room && _slots.size() - _taken < few;
}

// What came before the source failed is scanned all the same.
void Workers::fetch(Lock& lock) {
    _fetching = true;
    lock.unlock();
    std::vector<Target> targets;
    std::exception_ptr failure;
    bool more = false;
    try {
        more = _source(targets, kTogether);
    } catch (...) {
        failure = std::current_exception();
    }
    lock.lock();
    if (failure && !_failure) _failure = std::move(failure);
    for (Target& target : targets) _slots.push_back({std::move(target)});
    _exhausted = !more;
    _sourceIsSlow = targets.size() < kTogether;
    _fetching = false;
    _changed.notify_all();
}

// Hands on what is done from the front on. What is done meanwhile by other threads is included.
void Workers::handOn(Lock& lock) {
    _handingOn = true;
    while (!_stopped && !_slots.empty() && _slots.front().done) {
        const std::vector<FileReport> reports = takeReady();
        lock.unlock();
        bool wanted = true;
        for (std::size_t i = 0; i < reports.size() && wanted; ++i) wanted = _sink(reports[i]);
        lock = lockSoon(_mutex);
        if (!wanted) _stopped = true;
        _changed.notify_all();
    }
    _handingOn = false;
}

std::vector<FileReport> Workers::takeReady() {
    std::vector<FileReport> reports;
    while (!_slots.empty() && _slots.front().done && reports.size() < kTogether) {
        Slot& slot = _slots.front();
        _bytesWaiting -= slot.bytes;
        reports.push_back(std::move(slot.report));
        _slots.pop_front();
        --_taken;
    }
    return reports;
}

void Workers::fail(std::exception_ptr failure) {
    const Lock lock(_mutex);
    if (!_failure) _failure = std::move(failure);
    _stopped = true;
    _changed.notify_all();
}
