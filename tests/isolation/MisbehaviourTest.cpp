// Workers that are not what they should be: whatever one does costs the content that it had, and nothing else.
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "Isolated.h"
#include "ReplyReader.h"
#include "Script.h"
#include "io/FileIo.h"
#include "support/SignatureText.h"

namespace {

using namespace isolation;
using namespace script;
using namespace std::chrono;

const std::string kNonsense = "it answered what makes no sense", kEnded = "it ended with status 0",
                  kForbidden = "it made a system call that workers may not make",
                  kLate = "it did not answer within 400 ms", kCrash = "it was killed by signal 11 (SEGV)";
const std::string kLost = std::to_string(VOLE_E_WORKER) + " failed: its worker is lost: ", kClean = "0 clean",
                  kNeedle = "needle", kFound = "found Needle=md5,raw";

std::string frame(FrameKind kind, const std::string& content) {
    return raw(FrameHead{kind, static_cast<std::uint32_t>(content.size())}) + content;
}
std::string result(std::uint32_t error = 0) { return frame(FrameKind::result, raw(ResultFrame{error, {}})); }
std::string finding(std::uint32_t content, std::uint32_t kind, std::uint32_t form, const std::string& name = "N") {
    return frame(FrameKind::finding, raw(FindingFrame{content, kind, form, 0}) + name);
}
std::string reason(std::uint32_t content, std::uint32_t code) {
    return frame(FrameKind::reason, raw(ReasonFrame{content, code}) + "r");
}
std::string name(std::uint32_t archive) { return frame(FrameKind::name, raw(NameFrame{archive}) + "n"); }

// Of a content of 10 bytes, with one field as it is not; `rest` is its text and its components.
std::string event(std::uint32_t EventFrame::*field = &EventFrame::type, std::uint32_t value = VOLE_EVENT_CONTENT,
                  const std::string& rest = "") {
    EventFrame told{VOLE_EVENT_CONTENT, 0, 0, 0, VOLE_FORM_RAW, 0, 0, 10, 0, 0, 0};
    told.*field = value;
    return frame(FrameKind::event, raw(told) + rest);
}
std::string inMember(const std::string& rest) { return event(&EventFrame::componentCount, 1, rest); }

const std::string kDone = ring(BellKind::done), kListen = step(Step::listen), kAsked = ring(BellKind::event),
                  kGood = put(result()) + step(Step::finish) + kDone, kLeave = call(SYS_exit_group, "0"),
                  kSleep = call(SYS_futex, "zeros " + std::to_string(FUTEX_WAIT)),
                  kNap = call(SYS_futex, "zeros " + std::to_string(FUTEX_WAIT) + " 0 soon"),
                  kProgress = event(&EventFrame::type, VOLE_EVENT_PROGRESS);

// Shows a content, and then what it is asked for of it.
const std::string kShown = put(inMember(raw(std::uint32_t{3}) + "a/b")) + kAsked, kWanted = kShown + kListen;
const std::string kUnread = "=a/b [-1][-1]";
std::string bytes(const std::string& some) { return put(frame(FrameKind::bytes, some)) + ring(BellKind::bytes); }

std::string volume(std::uint32_t item, std::uint32_t number) { return ring(BellKind::volume, item, number) + kListen; }

// A script that costs its worker, how that ends, and what a host hears before.
struct Row {
    const char* why;
    std::string steps, how = kNonsense, heard = {};
};

class Misbehaviour : public IsolatedTest {
protected:
    void SetUp() override {
        patterns.write("a.hdb", md5Record(kNeedle, "Needle"));
        files.write("a.r00", "second");
        isolate(VOLE_TEST_WORKER, 100);
        allow(300);
        // Reads what it is shown, more than once, and looks at the rest of the event.
        ear.react = [this](const vole_event& event) {
            for (int i = 0; i < 2 && event.content; ++i) {
                char bytes[20] = "";
                const std::ptrdiff_t count = vole_content_read(event.content, 0, bytes, sizeof bytes);
                ear.heard += "[" + std::to_string(count) + bytes + event.content->method + "]";
            }
            return 0;
        };
    }

    void allow(unsigned ms) {
        const vole_limits terms = limits(&vole_limits::max_time_ms, ms);
        vole_scanner_set_limits(isolated.get(), &terms);
    }

    void listen() { vole_scanner_set_events(isolated.get(), Ear::hear, &ear); }

    // To a file, beside which there is a second volume.
    std::string answerTo(const std::string& steps) const {
        const std::string path = files.write("a.rar", std::string(kAtScan) + steps);
        const vole_error error = vole_scan_path(isolated.get(), path.c_str(), nullptr);
        return std::to_string(error) + " " + told(isolated.get());
    }

    // After each the next scan goes well, which also keeps the one after it from a pause.
    void expectLost(std::initializer_list<Row> rows) {
        for (const Row& row : rows) {
            SCOPED_TRACE(row.why);
            ear.heard.clear();
            // Sanitizers make calls of their own when a process crashes.
            EXPECT_EQ(answerTo(row.steps), kLost + (kSanitized && row.how == kCrash ? kForbidden : row.how));
            EXPECT_EQ(ear.heard, row.heard);
            EXPECT_EQ(toldOf(isolated.get(), kNeedle), kFound);
        }
    }

    Ear ear;
};

TEST_F(Misbehaviour, whatWorkersMayNotDoEndsThem) {
    const std::pair<const char*, std::string> forbidden[] = {
        {"open", call(SYS_open, "/etc/passwd 0")},
        {"openat", call(SYS_openat, "-100 /etc/passwd 0")},
        {"the status of a path", call(SYS_stat, "/etc/passwd zeros")},
        {"the newest way to it", call(SYS_statx, "-100 /etc/passwd 4096 0 zeros")},
        {"the same of a descriptor", call(SYS_statx, "3 zeros 4096 0 zeros")},
        {"memory of its own", call(SYS_memfd_create, "zeros 0")},
        {"socket", call(SYS_socket, "1 1 0")},
        {"connect", call(SYS_connect, "3 zeros 16")},
        {"bind", call(SYS_bind, "3 zeros 16")},
        {"fork", call(SYS_fork)},
        {"vfork", call(SYS_vfork)},
        {"clone", call(SYS_clone, "17 0 0 0 0")},
        {"clone3", call(SYS_clone3, "zeros 64")},
        {"execve", call(SYS_execve, "/bin/true zeros zeros")},
        {"execveat", call(SYS_execveat, "-100 /bin/true zeros zeros 0")},
        {"ptrace", call(SYS_ptrace, "16 1 0 0")},
        {"another's memory", call(SYS_process_vm_writev, "1 zeros 1 zeros 1 0")},
        {"setuid", call(SYS_setuid, "0")},
        {"capset", call(SYS_capset, "zeros zeros")},
        {"prctl", call(SYS_prctl, "4 1 0 0 0")},
        {"prlimit", call(SYS_prlimit64, "0 4 zeros 0")},
        {"unshare", call(SYS_unshare, "268435456")},
        {"kill", call(SYS_kill, "1 9")},
        {"tgkill of another", call(SYS_tgkill, "1 1 6")},
        {"tgkill with another signal", call(SYS_tgkill, "self self 9")},
        {"unlink", call(SYS_unlink, "/nothing")},
        {"rename", call(SYS_rename, "/nothing /nowhere")},
        {"mkdir", call(SYS_mkdir, "/nothing 0")},
        {"chmod", call(SYS_fchmod, "0 511")},
        {"mount", call(SYS_mount, "none /mnt tmpfs 0 0")},
        {"code from the kernel", call(SYS_mmap, "0 4096 5 34 -1 0")},
        {"code in what was data", call(SYS_mprotect, "zeros 4096 5")},
        {"code by a key", call(SYS_pkey_mprotect, "zeros 4096 5 -1")},
        {"shared code", call(SYS_shmat, "0 0 32768")},
        {"sendto", call(SYS_sendto, "3 zeros 1 0 0 0")},
        {"ioctl", call(SYS_ioctl, "0 21522 zeros")},
        {"flags of a descriptor", call(SYS_fcntl, "3 4 2048")},
        {"io_uring", call(SYS_io_uring_setup, "1 zeros")},
        {"userfaultfd", call(SYS_userfaultfd, "0")},
        {"keyctl", call(SYS_keyctl, "0 0")},
        {"bpf", call(SYS_bpf, "0 zeros 0")},
        {"perf", call(SYS_perf_event_open, "zeros 0 -1 -1 0")},
        {"another filter", call(SYS_seccomp, "1 0 zeros")},
        {"a call that will be made one day", call(4000)},
#ifdef __x86_64__
        {"the status of a descriptor and a path", call(SYS_newfstatat, "3 zeros zeros 4096")},
        {"sendmsg to another", call(SYS_sendmsg, "0 zeros 0")},
        {"sendmsg to what only looks like the socket", call(SYS_sendmsg, "4294967299 zeros 0")},
        {"a call as 32-bit programs make it", step(Step::oldCall, "5 /etc/passwd 0")},
        {"one as small 64-bit programs do", call(0x40000002, "/etc/passwd 0")},
#else
        {"the status of a descriptor and a path", call(SYS_fstatat64, "3 zeros zeros 4096")},
        {"code by the oldest way", call(SYS_mmap, "code 0 0")},
#endif
    };
    for (const auto& [why, steps] : forbidden) expectLost({{why, steps, kForbidden}});
    expectLost({
        {"a write to what it is given", step(Step::write, "inbox"), kCrash},
        {"one that it makes way for", call(SYS_mprotect, "inbox 4096 3") + step(Step::write, "inbox"), kCrash},
        {"a crash", step(Step::write, "0"), kCrash},
    });
    if (kSanitized) return;
    allow(30'000);  // Memory comes slowly where there is much to do.
    expectLost({
        {"a write to the socket", call(SYS_write, "3 zeros 1"), kForbidden},
        {"too much memory", step(Step::eat), "it was killed by signal 6 (ABRT)"},
    });
}

TEST_F(Misbehaviour, temporaryFilesTakeNoMoreThanLimitsAllow) {
    constexpr const char* k16MiB = sizeof(long) == 4 ? " 0 0 0 16777216 0" : " 0 0 16777216";
    const std::string file = ring(BellKind::file) + kListen;
    const auto filled = [&](int fd) { return file + call(SYS_fallocate, std::to_string(fd) + k16MiB); };
    vole_limits few = limits(&vole_limits::max_time_ms, 10'000);
    few.max_content = few.max_member = few.max_total = 100'000;
    vole_scanner_set_limits(isolated.get(), &few);
    expectLost({{"80 MiB", filled(6) + filled(7) + filled(8) + filled(9) + filled(10) + kSleep,
                 "its temporary files took more memory than its limits allow"}});
    std::vector<ZOV_SPACE::OwnFd> seen;
    ear.react = [&](const vole_event&) {
        std::vector<std::filesystem::path> paths;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            if (read_symlink(entry).string().find("vole-temporary") != std::string::npos) paths.push_back(entry);
        }
        for (const auto& path : paths) seen.push_back(ZOV_SPACE::openFile(path.c_str(), O_RDWR));
        return 0;
    };
    listen();
    std::string many;
    for (std::size_t i = 0; i < kMostTemporaryFiles + 5; ++i) many += file;
    EXPECT_EQ(answerTo(many + put(event()) + kAsked + kListen + kGood), kClean);
    EXPECT_EQ(seen.size(), kMostTemporaryFiles);
    for (const auto& temporary : seen) EXPECT_LT(::pwrite(temporary.get(), "x", 1, 0), 0) << "the scan has ended";
}

TEST_F(Misbehaviour, answersThatMakeNoSenseAreNone) {
    const auto answer = [](const std::string& frames) { return put(frames + result()) + kDone; };
    const auto other = [](std::uint32_t EventFrame::*field, std::uint32_t value) {
        return put(event(field, value) + result()) + kAsked + kListen + kDone;
    };
    const std::string asked = ring(BellKind::bytes);
    std::string deep;  // More than the usual 32 levels, and the members of the last.
    for (std::uint32_t level = 0; level <= 33; ++level) deep += name(level);
    expectLost({{"an event that nobody wants", put(event()) + kAsked}});
    EXPECT_EQ(answerTo(answer(name(0) + finding(1, 2, 2) + reason(0, 17))), "0 found N=checksum,normalised,0@n io");
    EXPECT_EQ(answerTo(volume(0, 2) + volume(0, 3) + volume(0, 0x7FFFFFFF) + kGood), kClean);
    allow(20'000);  // For what is more than it may say.
    listen();
    expectLost({
        {"a bell that is too short", put(result()) + step(Step::send, raw(Bell{BellKind::done, 0, 0}).substr(0, 8))},
        {"a bell that is too long", put(result()) + step(Step::send, raw(Bell{BellKind::done, 0, 0}) + "x")},
        {"a bell of no kind", ring(BellKind(8))},
        {"bytes that nobody wants", bytes("x")},
        {"descriptors", step(Step::sendFds, raw(Bell{BellKind::full, 0, 0}))},
        {"a volume before the second", volume(0, 1)},
        {"a volume behind the last", volume(0, 0x80000000)},
        {"a volume of what is not there", volume(1, 2)},
        {"more than there is room for", step(Step::use, "262145") + kDone},
        {"no result", kDone},
        {"half a head", put("abc") + kDone},
        {"a frame that is not all there", put(result().substr(0, 20)) + kDone},
        {"a frame without what belongs there", answer(frame(FrameKind::finding, "abc"))},
        {"a frame of no kind", answer(frame(FrameKind(7), ""))},
        {"an event for a result", put(event()) + kDone},
        {"a finding in what is not there", answer(finding(1, 1, 1))},
        {"a reason in what is not there", answer(name(0) + reason(2, 1))},
        {"an archive that is not there", answer(name(0) + name(2))},
        {"names deeper than any", answer(deep)},
        {"kind 0", answer(finding(0, 0, 1))},
        {"kind 3", answer(finding(0, 3, 1))},
        {"form 0", answer(finding(0, 1, 0))},
        {"form 3", answer(finding(0, 1, 3))},
        {"code 0", answer(reason(0, 0))},
        {"code 18", answer(reason(0, 18))},
        {"a NUL in a name", answer(finding(0, 1, 1, std::string("N\0N", 3)))},
        {"an error that workers do not have", put(result(VOLE_E_WORKER)) + kDone},
        {"two results", put(result() + result()) + kDone},
        {"more than it may say",
         put(raw(FrameHead{FrameKind::text, ReplyReader::kMostBytes})) + step(Step::use, "262144") +
             ring(BellKind::full) + kListen + step(Step::again),
         "it answered more than it may"},
        {"type 0", other(&EventFrame::type, 0)},
        {"a type above all", other(&EventFrame::type, VOLE_EVENT_EMPTY_MEMBER + 1)},
        {"form 3", other(&EventFrame::form, 3)},
        {"check-sum 3", other(&EventFrame::checksum, 3)},
        {"no such method", put(event(&EventFrame::textSize, 1, "x")) + kAsked},
        {"a result for an event", put(result()) + kAsked},
        {"no event", kAsked},
        {"another event for bytes", kWanted + put(kProgress) + asked, kNonsense, kUnread},
        {"a result for bytes", kWanted + put(result()) + asked, kNonsense, kUnread},
        {"another bell for bytes", kWanted + put(frame(FrameKind::bytes, "0123456789")) + kDone, kNonsense, kUnread},
        {"no bytes", kWanted + asked, kNonsense, kUnread},
    });
    EXPECT_EQ(answerTo(kWanted + bytes("01") + kListen + bytes("") + kListen + kGood), kClean) << "it is unreadable";
    EXPECT_NE(toldOf(isolated.get(), std::string(kAtScan) + volume(0, 2)).find(kNonsense), kNonsense.npos)
        << "what is no file has no volumes";
}

TEST_F(Misbehaviour, deathsCostOneContentAtAnyTime) {
    listen();
    expectLost({
        {"at once", kLeave, kEnded},
        {"in the middle of its result", put(result().substr(0, 9)) + ring(BellKind::full) + kListen + kLeave, kEnded},
        {"before it says that it is done", put(result()) + step(Step::finish) + kLeave, kEnded},
        {"when it has told", kShown + kLeave, kEnded, kUnread},
        {"when it is asked", kWanted + kLeave, kEnded, kUnread},
        {"in the middle of its answer", kWanted + put("abc") + kLeave, kEnded, kUnread},
        {"when it has answered", kWanted + bytes("0123456789") + kLeave, kEnded, "=a/b [100123456789][-1]"},
        {"when it has asked for a volume", ring(BellKind::volume, 0, 2) + kLeave, kEnded},
        {"when it has got one", volume(0, 2) + kLeave, kEnded},
        {"all but dead", call(SYS_close, "3") + kSleep, "it closed its socket"},
    });
    // What it does between two contents is noticed by then.
    EXPECT_EQ(answerTo(kGood + kLeave), kClean);
    EXPECT_EQ(::waitid(P_ALL, 0, nullptr, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(toldOf(isolated.get(), kNeedle), kFound);
}

TEST_F(Misbehaviour, workersThatDoNotStartCostOneContent) {
    const Row rows[] = {
        {"it dies before it is ready", kLeave, kEnded},
        {"it makes no sense", kDone, "it cannot work here"},
        {"it says what is no text", put(result()) + ring(BellKind::failed), "it makes no sense"},
        {"it cannot", put(frame(FrameKind::text, "no")) + ring(BellKind::failed), "no"},
        {"it is of another kind", step(Step::send, "x")},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(answerTo(kLeave), kLost + kEnded);
        const std::string content = std::string(kAtStart) + row.steps + kLeave;
        EXPECT_EQ(vole_scan_buffer(isolated.get(), content.data(), content.size(), nullptr), VOLE_E_ISOLATION);
        EXPECT_EQ(told(isolated.get()), "failed: no worker can be started: " + row.how) << row.why;
        EXPECT_EQ(toldOf(isolated.get(), kNeedle), kFound);
    }
    std::string why;
    EXPECT_FALSE(isolatedScanner(set, "/nonexistent/worker", 0, &why));
    EXPECT_EQ(why, "no worker can be started: /nonexistent/worker: No such file or directory");
    EXPECT_FALSE(isolatedScanner(set, "/bin/true", 0, &why));
    EXPECT_EQ(why, "no worker can be started: " + kEnded);
    // One that was killed at its start is no reason to go without.
    const std::string dies = files.write(
        "dies", "#!/bin/sh\nmkdir " + files.path().string() + "/once && kill -9 $$\nexec " + VOLE_TEST_WORKER);
    std::filesystem::permissions(dies, std::filesystem::perms::owner_all);
    EXPECT_EQ(toldOf(isolatedScanner(set, dies.c_str(), 100).get(), kNeedle), kFound);
}

TEST_F(Misbehaviour, whatItTakesTooLongForIsEnded) {
    const std::string rings = ring(BellKind::full) + kListen + step(Step::again);
    for (const std::string& steps : {kSleep, step(Step::again), rings, kNap + rings}) {
        const auto start = steady_clock::now();
        expectLost({{"", steps, kLate}});
        EXPECT_LT(steady_clock::now() - start, milliseconds(kSanitized ? 20'000 : 5'000));
    }
    allow(0);
    for (const std::string& steps : {kSleep, kNap + rings}) {
        std::thread canceller([&] {
            ::usleep(100'000);
            vole_scanner_cancel(isolated.get());
        });
        EXPECT_EQ(answerTo(steps), kLost + "it did not end its scan when it was told to");
        canceller.join();
        vole_scanner_rearm(isolated.get());
        EXPECT_EQ(toldOf(isolated.get(), kNeedle), kFound);
    }
}

TEST_F(Misbehaviour, deathsInARowSlowItDownUntilAGoodOne) {
    const auto start = steady_clock::now();
    for (const char* const pause : {"", "", "; 3 were in a row, so the next one has to wait for 100 ms",
                                    "; 4 were in a row, so the next one has to wait for 200 ms"}) {
        EXPECT_EQ(answerTo(kLeave), kLost + kEnded + pause);
    }
    EXPECT_EQ(toldOf(isolated.get(), kNeedle), kFound);
    EXPECT_GE(steady_clock::now() - start, milliseconds(300));
    EXPECT_EQ(answerTo(kLeave), kLost + kEnded);
}

// A host cancels, and then takes longer than the grace before it lets the worker go on: that is not the worker's fault.
TEST_F(Misbehaviour, timeThatTheHostTakesIsNotTheWorkers) {
    ear.react = [this](const vole_event&) {
        vole_scanner_cancel(isolated.get());
        return ::usleep(600'000);
    };
    listen();
    const std::string progress = put(kProgress) + kAsked + kListen;
    EXPECT_EQ(answerTo(progress + progress + kGood), kClean);
}

// Of files that are handed over together, those that have their results keep them.
TEST_F(Misbehaviour, ofFilesTogetherOneIsLost) {
    const std::string more = put(name(5)) + kDone;
    for (std::size_t results = 0; results <= 4; ++results) {
        for (const std::string& end : {kLeave, kDone, more}) {
            std::string steps(kAtScan);
            for (std::size_t i = 0; i < results; ++i) steps += put(result()) + step(Step::finish);
            const std::vector<std::string> names{files.write("0", steps + end), files.write("1", "x"),
                                                 files.write("2", kNeedle), files.write("3", "y")};
            // Once, this answer was taken for the first one's.
            EXPECT_EQ(toldOf(isolated.get(), "x"), "clean");
            std::vector<std::string> expected{"clean", "clean", results <= 2 ? kFound : "clean", "clean"};
            if (results < 4 || end == more) expected[std::min<std::size_t>(results, 3)] = "lost";
            EXPECT_EQ(toldOfEach(isolated.get(), names, toldUnlessLost), expected);
        }
    }
}

TEST_F(Misbehaviour, deathsLeaveNothingBehind) {
    const std::string during = possessions();
    for (int i = 0; i < (kSanitized ? 100 : 2000) && !HasFailure(); ++i) expectLost({{"", kLeave, kEnded}});
    EXPECT_EQ(possessions(), during);
    EXPECT_EQ(children().size(), 1U);
}

}  // namespace
