#include "Interruption.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <utility>

namespace {

struct Signal {
    int number;
    const char* name;
};
constexpr Signal kSignals[] = {{SIGHUP, "SIGHUP"}, {SIGINT, "SIGINT"}, {SIGTERM, "SIGTERM"}};

// What the handler uses is free of locks.
std::atomic<int> notedSignal = 0;
std::atomic<int> wakeUpFd = -1;  // Readable once a signal was noted; never closed.
std::array<std::atomic<vole_scanner*>, 1024> scanners;
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<vole_scanner*>::is_always_lock_free);

void dieOf(int number) {
    std::signal(number, SIG_DFL);
    std::raise(number);
}

// Milliseconds of a clock that only goes forward.
std::int64_t clockNow() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

extern "C" void noteSignal(int number) {
    // Some programs, such as timeout(1), send the same signal to the process and again to its group.
    constexpr std::int64_t kSameMoment = 100;
    static volatile std::int64_t firstSignal;
    if (notedSignal != 0) {
        if (clockNow() - firstSignal > kSameMoment) dieOf(number);
        return;
    }
    firstSignal = clockNow();
    notedSignal = number;
    const int errorBefore = errno;
    for (const auto& scanner : scanners) {
        if (vole_scanner* const running = scanner) vole_scanner_cancel(running);
    }
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(wakeUpFd, &one, sizeof one);
    errno = errorBefore;
}

// Puts `next` where `before` stands. A scanner for which there is no place is not cancelled: its scan ends by itself.
void replaceScanner(vole_scanner* before, vole_scanner* next) {
    for (auto& scanner : scanners) {
        vole_scanner* expected = before;
        if (scanner.compare_exchange_strong(expected, next)) return;
    }
}

}  // namespace

void noteSignals() {
    wakeUpFd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    struct sigaction action {};
    action.sa_handler = noteSignal;
    action.sa_flags = SA_RESTART;
    for (const Signal& signal : kSignals) {
        struct sigaction before;
        ::sigaction(signal.number, nullptr, &before);
        if (before.sa_handler != SIG_IGN) ::sigaction(signal.number, &action, nullptr);
    }
}

bool isInterrupted() { return notedSignal.load(std::memory_order_relaxed) != 0; }

const char* interruptingSignal() {
    const Signal* signal = kSignals;
    while (signal->number != notedSignal) ++signal;
    return signal->name;
}

void dieIfInterrupted() {
    if (isInterrupted()) dieOf(notedSignal);
}

bool waitReadable(int fd) {
    pollfd sources[] = {{fd, POLLIN, 0}, {wakeUpFd, POLLIN, 0}};
    while (::poll(sources, std::size(sources), -1) < 0 && errno == EINTR && !isInterrupted()) {
    }
    return !isInterrupted();
}

CancelledBySignal::CancelledBySignal(vole_scanner* scanner) : _scanner(scanner) {
    replaceScanner(nullptr, scanner);
    if (isInterrupted()) vole_scanner_cancel(scanner);
}

CancelledBySignal::~CancelledBySignal() { replaceScanner(_scanner, nullptr); }

SignalsBlocked::SignalsBlocked() {
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const Signal& signal : kSignals) sigaddset(&blocked, signal.number);
    ::pthread_sigmask(SIG_BLOCK, &blocked, &_before);
}

SignalsBlocked::~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &_before, nullptr); }
