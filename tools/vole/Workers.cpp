#include "Workers.h"

#include <algorithm>
#include <new>
#include <span>
#include <system_error>
#include <thread>
#include <utility>

#include "Interruption.h"
#include "Messages.h"

namespace {

constexpr std::size_t kTogether = 128;  // Targets fetched, and reports handed on, at once.
constexpr std::size_t kFewTargets = 64;
constexpr std::size_t kMostInHand = 32;
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

FileReport failed(const Target& target, std::string error) {
    FileReport report;
    report.path = target.path;
    report.error = std::move(error);
    report.outcome = Outcome::failed;
    return report;
}

bool isFile(const Target& target) { return target.error.empty() && !target.standardInput; }

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
    _hands.resize(scanners.size());
    std::vector<std::thread> threads;
    {
        const SignalsBlocked blocked;
        try {
            for (std::size_t i = 1; i < scanners.size(); ++i) {
                threads.emplace_back([this, &scanner = *scanners[i], &hand = _hands[i]] { work(scanner, hand); });
            }
        } catch (const std::system_error&) {
            // The system gives no more threads; those that there are do the work.
        }
    }
    work(*scanners.front(), _hands.front());
    for (std::thread& thread : threads) thread.join();
    // After a signal: what was scanned behind what was not begun.
    for (auto slot = _slots.begin(); slot != _slots.end() && !_stopped; ++slot) {
        if (slot->done) _stopped = !_sink(slot->report);
    }
    if (_failure) std::rethrow_exception(_failure);
}

void Workers::work(FileScanner& scanner, Hand& hand) {
    try {
        while (take(hand)) scan(scanner, hand);
    } catch (...) {
        fail(std::current_exception());
    }
}

// As many of the targets in the hand as are left to this thread.
void Workers::scan(FileScanner& scanner, Hand& hand) {
    bool more = true;
    const auto told = [&](FileReport report) {
        try {
            more = handIn(hand, std::move(report));
        } catch (...) {
            fail(std::current_exception());
            more = false;
        }
        return more;
    };
    while (more) {
        const auto targets = std::span<const Target>(hand.targets).subspan(hand.begun - 1);
        if (!targets.front().error.empty()) {
            told(failed(targets.front(), targets.front().error));
            continue;
        }
        try {
            scanner.scanAll(targets, told);
        } catch (const std::bad_alloc&) {
            told(failed(hand.targets[hand.begun - 1], kMemoryRanOut));
        }
    }
}

// False when this thread is done.
bool Workers::take(Hand& hand) {
    Lock lock = lockSoon(_mutex);
    hand = {};
    while (!_stopped && !isInterrupted()) {
        // A slow source is not waited for while there is something to do.
        if (mayFetch() && !(_sourceIsSlow && takeBack())) {
            fetch(lock);
        } else if (!_waiting.empty() || takeBack()) {
            fill(hand);
            return true;
        } else if (_exhausted) {
            return false;
        } else {
            _changed.wait(lock);
        }
    }
    _changed.notify_all();
    return false;
}

// Several files, which a scanner may have ways to scan together, but no more than this thread's share.
void Workers::fill(Hand& hand) {
    const std::size_t most = std::min(kMostInHand, _waiting.size() / _hands.size());
    hand.slots.reserve(most + 1);
    hand.targets.reserve(most + 1);  // What is in the one is in the other, also when memory is short.
    do {
        hand.slots.push_back(_waiting.front());
        hand.targets.push_back(std::move(_waiting.front()->target));
        _waiting.pop_front();
    } while (hand.slots.size() < most && isFile(hand.targets.back()) && isFile(_waiting.front()->target));
    hand.begun = 1;
}

// Has wait again what no thread has begun. False when there is nothing.
bool Workers::takeBack() {
    for (Hand& hand : _hands) {
        for (; hand.slots.size() > hand.begun; hand.slots.pop_back()) {
            hand.slots.back()->target = hand.targets[hand.slots.size() - 1];
            _waiting.push_front(hand.slots.back());
        }
    }
    return !_waiting.empty();
}

// The report of what was begun last. True when this thread has another one to scan, which is begun with that.
bool Workers::handIn(Hand& hand, FileReport report) {
    const std::size_t bytes = memoryOf(report);
    Lock lock = lockSoon(_mutex);
    Slot& slot = *hand.slots[hand.begun - 1];
    slot.report = std::move(report);
    slot.bytes = bytes;
    slot.done = true;
    _bytesWaiting += bytes;
    if (!_handingOn) handOn(lock);
    if (_stopped || isInterrupted() || hand.begun == hand.slots.size()) return false;
    ++hand.begun;
    return true;
}

bool Workers::mayFetch() const {
    const bool room = _slots.size() < kMostSlots && _bytesWaiting + _slots.size() * sizeof(Slot) < kMostBytesWaiting;
    // A source that gave fewer than it was asked for has them wait for it: what there is goes first.
    const std::size_t few = _sourceIsSlow ? 1 : kFewTargets;
    return !_fetching && !_exhausted && room && _waiting.size() < few;
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
    for (Target& target : targets) _waiting.push_back(&_slots.emplace_back(Slot{std::move(target)}));
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
    }
    return reports;
}

void Workers::fail(std::exception_ptr failure) {
    const Lock lock(_mutex);
    if (!_failure) _failure = std::move(failure);
    _stopped = true;
    _changed.notify_all();
}
