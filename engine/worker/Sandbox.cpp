#include "Sandbox.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <linux/fs.h>
#include <pwd.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <memory>
#include <string_view>

#include "Raise.h"
#include "Wire.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VOLE_SANITIZED 1
#else
#define VOLE_SANITIZED 0
#endif

namespace worker {
namespace {

constexpr bool kSanitized = VOLE_SANITIZED != 0;

[[noreturn]] void fail(const std::string& what, int error) {
    throw SandboxError{what + ": " + ZOV_SPACE::systemErrorText(error)};
}

void require(bool done, const char* what) {
    if (!done) fail(what, errno);
}

// ---------------------------------------------------------------------------------------------------------- limits

void limitTo(int resource, std::uint64_t most, const char* what) {
    const auto value = static_cast<rlim_t>(std::min<std::uint64_t>(most, std::numeric_limits<rlim_t>::max()));
    rlimit limit{};
    require(::getrlimit(static_cast<__rlimit_resource_t>(resource), &limit) == 0, what);
    limit.rlim_max = std::min(limit.rlim_max, value);
    limit.rlim_cur = std::min(limit.rlim_cur, limit.rlim_max);
    require(::setrlimit(static_cast<__rlimit_resource_t>(resource), &limit) == 0, what);
}

// Bytes of addresses in use.
std::uint64_t addressesInUse() {
    std::ifstream file("/proc/self/statm");
    std::uint64_t pages = 0;
    if (!(file >> pages)) fail("addresses in use", ENOENT);
    return pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

void limitResources(const SandboxTerms& terms) {
    constexpr std::uint64_t kMostOpen = 256;
    limitTo(RLIMIT_CORE, 0, "no core files");
    limitTo(RLIMIT_NOFILE, kMostOpen, "limit on descriptors");
    limitTo(RLIMIT_FSIZE, isolation::kMostTemporaryBytes, "limit on temporary files");
    std::signal(SIGXFSZ, SIG_IGN);  // Beyond it writing fails, which scans know how to tell.
    // Sanitizers reserve more addresses than anybody has memory.
    if (terms.maxMemory != 0 && !kSanitized) {
        limitTo(RLIMIT_AS, addressesInUse() + terms.maxMemory, "limit on memory");
    }
}

// ---------------------------------------------------------------------------------------------------------- rights

// Where this is root: a user who owns nothing.
void changeUser() {
    constexpr uid_t kNobody = 65534;
    if (::geteuid() != 0) return;
    const passwd* const own = ::getpwnam("_vole");
    const uid_t user = own && own->pw_uid != 0 ? own->pw_uid : kNobody;
    const gid_t group = own && own->pw_uid != 0 ? own->pw_gid : kNobody;
    require(::setgroups(0, nullptr) == 0, "no groups");
    require(::setresgid(group, group, group) == 0, "another group");
    require(::setresuid(user, user, user) == 0, "another user");
}

// Where there are none there may be no right to say so.
void dropCapabilities() {
    using Capabilities = std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3>;
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    Capabilities held{};
    const Capabilities none{};
    const bool hasNone = ::syscall(SYS_capget, &header, held.data()) == 0 &&
                         std::all_of(held.begin(), held.end(), [](const __user_cap_data_struct& word) {
                             return (word.effective | word.permitted | word.inheritable) == 0;
                         });
    require(hasNone || ::syscall(SYS_capset, &header, none.data()) == 0, "no capabilities");
}

// --------------------------------------------------------------------------------------------------------- Landlock

// As the kernel has it since each ABI; headers of the system may be older than the system.
struct LandlockRules {
    std::uint64_t files;
    std::uint64_t network;
    std::uint64_t scopes;
};
#ifndef SYS_landlock_create_ruleset
constexpr long SYS_landlock_create_ruleset = 444;
constexpr long SYS_landlock_restrict_self = 446;
#endif

// Nothing may be opened, made, removed, bound or connected to. A second lock behind the filter, where there is one.
void enterLandlock() {
    constexpr unsigned kVersionFlag = 1;
    const long abi = ::syscall(SYS_landlock_create_ruleset, nullptr, std::size_t{0}, kVersionFlag);
    if (abi < 1) return;
    struct Step {
        long abi;
        unsigned fileRights;
        std::size_t size;
    };
    constexpr Step kSteps[] = {{1, 13, offsetof(LandlockRules, network)}, {2, 14, offsetof(LandlockRules, network)},
                               {3, 15, offsetof(LandlockRules, network)}, {4, 15, offsetof(LandlockRules, scopes)},
                               {5, 16, offsetof(LandlockRules, scopes)},  {6, 16, sizeof(LandlockRules)}};
    const Step* step = kSteps;
    while (std::next(step) != std::end(kSteps) && std::next(step)->abi <= abi) ++step;
    const LandlockRules rules{(std::uint64_t{1} << step->fileRights) - 1, 3, 3};
    const auto ruleset = static_cast<int>(::syscall(SYS_landlock_create_ruleset, &rules, step->size, 0U));
    require(ruleset >= 0, "Landlock");
    require(::syscall(SYS_landlock_restrict_self, ruleset, 0U) == 0, "Landlock");
    ::close(ruleset);
}

// ---------------------------------------------------------------------------------------------------------- seccomp

// The system calls that are left; each other one ends the process.
class Filter {
public:
    Filter() : _context(::seccomp_init(SCMP_ACT_KILL_PROCESS), &::seccomp_release) {
        if (!_context) fail("seccomp", ENOSYS);
        // Without the slow memory of processes that do not trust themselves: here is nothing to be read by tricks.
        static_cast<void>(::seccomp_attr_set(_context.get(), SCMP_FLTATR_CTL_SSB, 1));
    }

    // What this architecture does not have is not called either.
    void allow(std::initializer_list<int> calls) {
        for (const int call : calls) add(call, {});
    }

    // Only if all of these hold.
    void allowIf(int call, std::initializer_list<scmp_arg_cmp> conditions) { add(call, conditions); }

    void enter() {
        const int result = ::seccomp_load(_context.get());
        if (result != 0) fail("seccomp", -result);
    }

private:
    void add(int call, std::initializer_list<scmp_arg_cmp> conditions) {
        if (call < 0) return;
        const int result = ::seccomp_rule_add_exact_array(_context.get(), SCMP_ACT_ALLOW, call,
                                                          static_cast<unsigned>(conditions.size()), conditions.begin());
        if (result != 0) fail("seccomp, call " + std::to_string(call), -result);
    }

    std::unique_ptr<void, void (*)(void*)> _context;
};

scmp_arg_cmp isEqual(unsigned argument, std::uint64_t value) { return {argument, SCMP_CMP_EQ, value, 0}; }
scmp_arg_cmp hasBits(unsigned argument, std::uint64_t mask, std::uint64_t bits) {
    return {argument, SCMP_CMP_MASKED_EQ, mask, bits};
}

void enterFilter() {
    Filter filter;
    // What is open for it: contents, which are open for reading alone, its own temporary files, and the socket.
    // Contents are read at positions, and never from where they stand, which may be the host's position, too.
    filter.allow({SCMP_SYS(pread64), SCMP_SYS(preadv), SCMP_SYS(pwrite64), SCMP_SYS(close), SCMP_SYS(ftruncate),
                  SCMP_SYS(ftruncate64), SCMP_SYS(fallocate), SCMP_SYS(fadvise64), SCMP_SYS(fadvise64_64)});
    filter.allowIf(SCMP_SYS(fcntl), {isEqual(1, F_DUPFD_CLOEXEC)});
    filter.allowIf(SCMP_SYS(fcntl64), {isEqual(1, F_DUPFD_CLOEXEC)});
    filter.allowIf(SCMP_SYS(ioctl), {isEqual(1, BLKGETSIZE64)});
#ifndef __i386__
    filter.allowIf(SCMP_SYS(sendmsg), {isEqual(0, isolation::kSocketFd)});
    filter.allowIf(SCMP_SYS(recvmsg), {isEqual(0, isolation::kSocketFd)});
#else
    // Where all socket calls share one, the library cannot tell descriptors apart. There is no other socket.
    filter.allow({SCMP_SYS(sendmsg), SCMP_SYS(recvmsg)});
#endif
    // The status of what is open: see Fstat.cpp.
    filter.allow({SCMP_SYS(fstat), SCMP_SYS(fstat64)});
    // Memory, none of which can be executed.
    filter.allow({SCMP_SYS(brk), SCMP_SYS(munmap), SCMP_SYS(mremap), SCMP_SYS(madvise)});
    // Where there are two ways to map, the older one has its arguments in memory, where a filter does not see them.
    const int map = SCMP_SYS(mmap2) < 0 ? SCMP_SYS(mmap) : SCMP_SYS(mmap2);
    for (const int call : {map, SCMP_SYS(mprotect)}) {
        filter.allowIf(call, {hasBits(2, PROT_EXEC, 0)});
    }
    // What takes nothing from anybody.
    filter.allow({SCMP_SYS(clock_gettime), SCMP_SYS(clock_gettime64), SCMP_SYS(gettimeofday), SCMP_SYS(getrandom),
                  SCMP_SYS(futex), SCMP_SYS(futex_time64), SCMP_SYS(restart_syscall), SCMP_SYS(exit),
                  SCMP_SYS(exit_group)});
    // abort(), and what the libraries write to standard error before, which is /dev/null.
    filter.allowIf(SCMP_SYS(write), {isEqual(0, STDERR_FILENO)});
    filter.allowIf(SCMP_SYS(writev), {isEqual(0, STDERR_FILENO)});
    filter.allow({SCMP_SYS(rt_sigprocmask), SCMP_SYS(getpid), SCMP_SYS(gettid)});
    filter.allowIf(SCMP_SYS(tgkill), {isEqual(0, static_cast<std::uint64_t>(::getpid())), isEqual(2, SIGABRT)});
    if (kSanitized) {
        // Whether an address can be read they find out by writing from there to a pipe.
        filter.allow({SCMP_SYS(sched_yield), SCMP_SYS(clock_nanosleep), SCMP_SYS(nanosleep), SCMP_SYS(sigaltstack),
                      SCMP_SYS(pipe), SCMP_SYS(pipe2), SCMP_SYS(write)});
    }
    filter.enter();
}

}  // namespace

void enterSandbox(const SandboxTerms& terms) {
    limitResources(terms);
    changeUser();
    dropCapabilities();
    require(::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) == 0, "no traces");
    require(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "no new rights");
    enterLandlock();
    enterFilter();
}

}  // namespace worker
