#include "WorkerProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>

#include "NoCancel.h"

namespace isolation {
namespace {

// Where duplicates go, so that none stands where another one is to come.
constexpr int kAboveAll = WorkerProcess::kFirstFd + static_cast<int>(WorkerProcess::kFdCount);

class SpawnActions {
public:
    SpawnActions() { ::posix_spawn_file_actions_init(&_actions); }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;
    ~SpawnActions() { ::posix_spawn_file_actions_destroy(&_actions); }

    posix_spawn_file_actions_t* get() { return &_actions; }

private:
    posix_spawn_file_actions_t _actions{};
};

class SpawnAttributes {
public:
    SpawnAttributes() {
        ::posix_spawnattr_init(&_attributes);
        sigset_t none, all;
        sigemptyset(&none);
        sigfillset(&all);
        ::posix_spawnattr_setsigmask(&_attributes, &none);
        ::posix_spawnattr_setsigdefault(&_attributes, &all);
        // What is typed at the host's terminal is not for workers.
        ::posix_spawnattr_setflags(&_attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID);
    }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    ~SpawnAttributes() { ::posix_spawnattr_destroy(&_attributes); }

    posix_spawnattr_t* get() { return &_attributes; }

private:
    posix_spawnattr_t _attributes{};
};

// Sanitizers take their settings from it, and nothing else does.
char** environmentForWorkers() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return environ;
#else
    static char* none[] = {nullptr};
    return none;
#endif
}

// Not of a process that somebody else has waited for.
std::string howItEnded(const siginfo_t& status) {
    if (status.si_code == CLD_EXITED) return "it ended with status " + std::to_string(status.si_status);
    if (status.si_status == SIGSYS) return "it made a system call that workers may not make";
    if (status.si_status == SIGXCPU) return "it used more processor time than it may";
    const char* const name = ::sigabbrev_np(status.si_status);
    return "it was killed by signal " + std::to_string(status.si_status) + (name ? std::string(" (") + name + ")" : "");
}

}  // namespace

int WorkerProcess::start(const std::string& program, const std::array<int, kFdCount>& descriptors) {
    SpawnActions actions;
    SpawnAttributes attributes;
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        if (fd == STDERR_FILENO) break;  // For their reports.
#endif
        ::posix_spawn_file_actions_addopen(actions.get(), fd, "/dev/null", O_RDWR, 0);
    }
    std::array<ZOV_SPACE::OwnFd, kFdCount> above;
    for (std::size_t i = 0; i < kFdCount; ++i) {
        above[i].reset(::fcntl(descriptors[i], F_DUPFD_CLOEXEC, kAboveAll));
        if (!above[i]) return errno;
        ::posix_spawn_file_actions_adddup2(actions.get(), above[i].get(), kFirstFd + static_cast<int>(i));
    }
    ::posix_spawn_file_actions_addclosefrom_np(actions.get(), kAboveAll);
    std::string name = "vole-worker";
    char* const arguments[] = {name.data(), nullptr};
    const ZOV_SPACE::NoCancel guard;
    const int error =
        ::posix_spawn(&_id, program.c_str(), actions.get(), attributes.get(), arguments, environmentForWorkers());
    if (error != 0) {
        _id = 0;
        return error;
    }
    // A process that has ended already has one, too, as long as nobody has waited for it.
    _ended.reset(static_cast<int>(::syscall(SYS_pidfd_open, _id, 0U)));
    if (_ended) return 0;
    const int reason = errno;
    end();
    return reason;
}

void WorkerProcess::allowSeconds(std::uint64_t seconds) const {
    clockid_t clock{};
    timespec used{};
    if (::clock_getcpuclockid(_id, &clock) != 0 || ::clock_gettime(clock, &used) != 0) return;
    const rlim_t most = static_cast<rlim_t>(used.tv_sec) + 1 + static_cast<rlim_t>(seconds);
    const rlimit limit{seconds == 0 ? RLIM_INFINITY : most, RLIM_INFINITY};
    ::prlimit(_id, RLIMIT_CPU, &limit, nullptr);
}

std::string WorkerProcess::end() {
    if (!isRunning()) return {};
    const ZOV_SPACE::NoCancel guard;
    siginfo_t status{};
    const auto wait = [&](int options) {
        int result;
        do {
            result = ::waitid(P_PID, static_cast<id_t>(_id), &status, WEXITED | options);
        } while (result != 0 && errno == EINTR);
        return result == 0 && status.si_pid == _id;
    };
    const bool hadEnded = wait(WNOHANG);
    if (!hadEnded) {
        // Not by its number: when the host does not want to know of its children, others may have that by now.
        if (_ended) {
            ::syscall(SYS_pidfd_send_signal, _ended.get(), SIGKILL, nullptr, 0U);
        } else {
            ::kill(_id, SIGKILL);
        }
        wait(0);
    }
    _id = 0;
    _ended.reset();
    return hadEnded ? howItEnded(status) : std::string();
}

}  // namespace isolation
