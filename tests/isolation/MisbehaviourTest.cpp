// Workers that are not what they should be: whatever one does costs the content that it had, and nothing else.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <chrono>
#include <functional>
#include <thread>

#include "Isolated.h"
#include "ReplyReader.h"
#include "Script.h"
#include "io/FileIo.h"
#include "support/SignatureText.h"
#include "support/TempDir.h"

namespace {

using namespace isolation;
using namespace script;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

const std::string kNonsense = "it answered what makes no sense",
                  kForbidden = "it made a system call that workers may not make",
                  kLate = "it did not answer within 400 ms", kCrash = "it was killed by signal 11 (SEGV)";

template <class Frame>
std::string frame(FrameKind kind, const Frame& content, const std::string& text = "") {
    return raw(FrameHead{kind, static_cast<std::uint32_t>(sizeof content + text.size())}) + raw(content) + text;
}

std::string result(std::uint32_t error = 0) { return frame(FrameKind::result, ResultFrame{error, {}}); }
std::string finding(std::uint32_t content, std::uint32_t kind, std::uint32_t form, const std::string& name = "N") {
    return frame(FrameKind::finding, FindingFrame{content, kind, form, 0}, name);
}
std::string reason(std::uint32_t content, std::uint32_t code) {
    return frame(FrameKind::reason, ReasonFrame{content, code}, "r");
}
std::string name(std::uint32_t archive) { return frame(FrameKind::name, NameFrame{archive}, "n"); }

// Of a content of 10 bytes; `change` makes it another one.
std::string event(
    const std::function<void(EventFrame&)>& change = [](EventFrame&) {}, const std::string& rest = "") {
    EventFrame told{};
    told.type = VOLE_EVENT_CONTENT;
    told.form = VOLE_FORM_RAW;
    told.size = 10;
    change(told);
    return frame(FrameKind::event, told, rest);
}

const std::string kDone = ring(BellKind::done), kGood = put(result()) + step(Step::finish) + kDone;
const std::string kLeave = call(SYS_exit_group, "0"), kSleep = call(SYS_futex, "zeros " + std::to_string(FUTEX_WAIT));
const std::string kNap = call(SYS_futex, "zeros " + std::to_string(FUTEX_WAIT) + " 0 soon");

class Misbehaviour : public testing::Test {
protected:
    Misbehaviour() {
        patterns.write("a.hdb", md5Record("needle", "Needle"));
        set = loadedSet(patterns.path());
        limits.max_time_ms = 300;
    }

    VoleScanner scanner() const { return isolatedScanner(set, VOLE_TEST_WORKER, limits, 100); }

    // Of a scan whose worker is lost. Then the next one goes well, which also keeps the one after it from a pause.
    static void expectLost(vole_scanner* with, const std::string& steps, const std::string& how) {
        const std::string content(std::string(kAtScan) + steps);
        EXPECT_EQ(vole_scan_buffer(with, content.data(), content.size(), nullptr), VOLE_E_WORKER);
        // Sanitizers make calls of their own when a process crashes.
        const bool isOwnDeath = !kSanitized || how != kCrash;
        EXPECT_EQ(told(with), "failed: its worker is lost: " + (isOwnDeath ? how : kForbidden));
        EXPECT_EQ(toldOf(with, "needle"), "found Needle=md5,raw");
    }

    TempDir patterns, files;
    VoleSet set;
    vole_limits limits = VOLE_LIMITS_INIT;
};

TEST_F(Misbehaviour, whatWorkersMayNotDoEndsThem) {
    const struct {
        const char* why;
        std::string steps;
        std::string how = kForbidden;
    } rows[] = {
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
        {"a write to what it is given", step(Step::scribble), kCrash},
        {"one that it makes way for", call(SYS_mprotect, "inbox 4096 3") + step(Step::scribble), kCrash},
        {"a crash", step(Step::crash), kCrash},
    };
    const VoleScanner with = scanner();
    ASSERT_TRUE(with);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        expectLost(with.get(), row.steps, row.how);
    }
    if (kSanitized) return;
    expectLost(with.get(), call(SYS_write, "3 zeros 1"), kForbidden);
    limits.max_time_ms = 30'000;  // Memory comes slowly where there is much to do.
    expectLost(scanner().get(), step(Step::eat), "it was killed by signal 6 (ABRT)");
}

// The first one is descriptor 4; the signatures have 5.
TEST_F(Misbehaviour, temporaryFilesTakeNoMoreThanLimitsAllow) {
    constexpr const char* k16MiB = sizeof(long) == 4 ? " 0 0 0 16777216 0" : " 0 0 16777216";
    const std::string file = ring(BellKind::file) + step(Step::listen);
    limits.max_content = limits.max_member = limits.max_total = 100'000;
    const VoleScanner with = scanner();
    std::string steps = file;
    for (int fd = 6; fd < 11; ++fd) steps += file + call(SYS_fallocate, std::to_string(fd) + k16MiB);
    expectLost(with.get(), steps + kSleep, "its temporary files took more memory than its limits allow");

    std::vector<ZOV_SPACE::OwnFd> seen;
    const auto look = [](void* context, const vole_event*) {
        std::vector<std::filesystem::path> paths;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            const bool isOne = std::filesystem::read_symlink(entry).string().find("temporary") != std::string::npos;
            if (isOne) paths.push_back(entry.path());
        }
        for (const auto& path : paths) {
            static_cast<decltype(seen)*>(context)->push_back(ZOV_SPACE::openFile(path.c_str(), O_RDWR));
        }
        return 0;
    };
    vole_scanner_set_events(with.get(), look, &seen);
    steps.clear();
    for (int i = 0; i < 300; ++i) steps += file + call(SYS_close, "4");
    steps += put(event()) + ring(BellKind::event) + step(Step::listen) + kGood;
    EXPECT_EQ(toldOf(with.get(), std::string(kAtScan) + steps), "clean");
    EXPECT_EQ(seen.size(), kMostTemporaryFiles);
    for (const auto& temporary : seen) EXPECT_LT(::pwrite(temporary.get(), "x", 1, 0), 0) << "the scan has ended";
}

TEST_F(Misbehaviour, answersThatMakeNoSenseAreNone) {
    std::string deep;
    for (std::uint32_t level = 0; level <= limits.max_depth + 1; ++level) deep += name(level);
    const auto answer = [](const std::string& frames) { return put(frames + result()) + kDone; };
    const struct {
        const char* why;
        std::string steps;
        std::string how = kNonsense;
    } rows[] = {
        {"a bell that is too short", step(Step::send, "abc")},
        {"a bell that is too long", step(Step::send, std::string(100, '\0'))},
        {"a bell of no kind", ring(BellKind(8))},
        {"ready once more", ring(BellKind::ready)},
        {"failed", put(frame(FrameKind::text, 'x')) + ring(BellKind::failed)},
        {"bytes that nobody wants", put(frame(FrameKind::bytes, 'x')) + ring(BellKind::bytes)},
        {"an event that nobody wants", put(event()) + ring(BellKind::event)},
        {"a volume of what has none", ring(BellKind::volume, 0, 2)},
        {"descriptors", step(Step::sendFds, raw(Bell{BellKind::full, 0, 0}))},
        {"more than there is room for", step(Step::use, "262145") + kDone},
        {"far more", step(Step::use, "4294967295") + kDone},
        {"no result", kDone},
        {"nothing but a finding", put(finding(0, 1, 1)) + kDone},
        {"half a head", put("abc") + kDone},
        {"a frame larger than any", put(raw(FrameHead{FrameKind::text, 0xFFFFFFFF})) + kDone},
        {"a frame that is not all there", put(result().substr(0, 20)) + kDone},
        {"a frame without what belongs there", answer(raw(FrameHead{FrameKind::finding, 3}) + "abc")},
        {"a result without what belongs there", put(raw(FrameHead{FrameKind::result, 0})) + kDone},
        {"a frame of no kind", answer(raw(FrameHead{FrameKind(7), 0}))},
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
        {"no error", put(result(0x80000000)) + kDone},
        {"two results", put(result() + result()) + kDone},
        {"more than it may say",
         put(raw(FrameHead{FrameKind::text, ReplyReader::kMostBytes})) + step(Step::use, "262144") +
             ring(BellKind::full) + step(Step::listen) + step(Step::again),
         "it answered more than it may"},
    };
    limits.max_time_ms = 20'000;  // For the last one.
    const VoleScanner with = scanner();
    ASSERT_TRUE(with);
    const std::string before = possessions();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        expectLost(with.get(), row.steps, row.how);
    }
    EXPECT_EQ(possessions(), before);
    EXPECT_EQ(
        toldOf(with.get(), std::string(kAtScan) + put(name(0) + finding(1, 2, 2) + reason(0, 17) + result()) + kDone),
        "found N=checksum,normalised,0@n io");
}

// What a host does with the content that it is shown: reads it, more than once, and looks at the rest of the event.
struct Reader {
    std::string heard;
    std::function<void()> first = [] {};

    static int hear(void* context, const vole_event* event) {
        auto& [heard, first] = *static_cast<Reader*>(context);
        first();
        for (int i = 0; i < 2 && event->content; ++i) {
            char bytes[20] = "";
            const std::ptrdiff_t count = vole_content_read(event->content, 0, bytes, sizeof bytes);
            heard += "[" + textOf(event->member) + std::to_string(count) + bytes + event->content->method + "]";
        }
        return 0;
    }
};

TEST_F(Misbehaviour, eventsThatMakeNoSenseAreNone) {
    const std::string member = raw(std::uint32_t{3}) + "a/b";
    const auto inMember = [](EventFrame& told) { told.componentCount = 1; };
    const std::string shown = put(event(inMember, member)) + ring(BellKind::event), wanted = shown + step(Step::listen);
    const auto other = [](auto field, std::uint32_t value) {
        return put(event([&](EventFrame& told) { told.*field = value; }) + result()) + ring(BellKind::event) +
               step(Step::listen) + kDone;
    };
    const auto bytes = [](const std::string& some) {
        return put(raw(FrameHead{FrameKind::bytes, static_cast<std::uint32_t>(some.size())}) + some);
    };
    const std::string asked = ring(BellKind::bytes), twice = "[a/b-1][a/b-1]";
    const auto gone = [](EventFrame& told) { told.type = VOLE_EVENT_PROGRESS; };
    const struct {
        const char* why;
        std::string steps;
        std::string heard;
        std::string how = kNonsense;
    } rows[] = {
        {"type 0", other(&EventFrame::type, 0), ""},
        {"a type above all", other(&EventFrame::type, VOLE_EVENT_EMPTY_MEMBER + 1), ""},
        {"form 3", other(&EventFrame::form, 3), ""},
        {"check-sum 3", other(&EventFrame::checksum, 3), ""},
        {"text beyond the frame", other(&EventFrame::textSize, 1), ""},
        {"text far beyond it", other(&EventFrame::textSize, 0xFFFFFFFF), ""},
        {"components beyond it", other(&EventFrame::componentCount, 1), ""},
        {"more of them than any", other(&EventFrame::componentCount, 0xFFFFFFFF), ""},
        {"a component larger than it", put(event(inMember, raw(0xFFFFFFFFU))) + ring(BellKind::event), ""},
        {"no such method", put(event([](EventFrame& told) { told.textSize = 1; }, "x")) + ring(BellKind::event), ""},
        {"a result for an event", put(result()) + ring(BellKind::event), ""},
        {"no event", ring(BellKind::event), ""},
        {"another event for bytes", wanted + put(event(gone)) + asked, twice},
        {"half of another event for bytes", wanted + put(event(inMember, raw(0xFFFFFFFFU))) + asked, twice},
        {"a result for bytes", wanted + put(result()) + asked, twice},
        {"a bell of another kind for bytes", wanted + bytes("0123456789") + kDone, twice},
        {"no bytes", wanted + asked, twice},
        {"it dies when it has told", shown + kLeave, twice, "it ended with status 0"},
        {"it dies when it is asked", wanted + kLeave, twice, "it ended with status 0"},
        {"it dies in the middle of its answer", wanted + put("abc") + kLeave, twice, "it ended with status 0"},
        {"it dies when it has answered", wanted + bytes("0123456789") + asked + kLeave, "[a/b100123456789][a/b-1]",
         "it ended with status 0"},
    };
    const VoleScanner with = scanner();
    ASSERT_TRUE(with);
    Reader reader;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        reader.heard.clear();
        vole_scanner_set_events(with.get(), Reader::hear, &reader);
        expectLost(with.get(), row.steps, row.how);
        EXPECT_EQ(reader.heard, row.heard);
    }
    const std::string unreadable = wanted + bytes("01") + asked + step(Step::listen);
    EXPECT_EQ(toldOf(with.get(), std::string(kAtScan) + unreadable + bytes("") + asked + step(Step::listen) + kGood),
              "clean");
}

TEST_F(Misbehaviour, deathsCostOneContentAtAnyTime) {
    const std::string ended = "it ended with status 0";
    const VoleScanner with = scanner();
    ASSERT_TRUE(with);
    expectLost(with.get(), kLeave, ended);
    expectLost(with.get(), put(result().substr(0, 9)) + ring(BellKind::full) + step(Step::listen) + kLeave, ended);
    expectLost(with.get(), put(result()) + step(Step::finish) + kLeave, ended);
    expectLost(with.get(), call(SYS_close, "3") + kSleep, "it closed its socket");
    // What it does between two contents is noticed by then.
    EXPECT_EQ(toldOf(with.get(), std::string(kAtScan) + kGood + kLeave), "clean");
    while (::waitid(P_ALL, 0, std::make_unique<siginfo_t>().get(), WEXITED | WNOWAIT) != 0) {
    }
    EXPECT_EQ(toldOf(with.get(), "needle"), "found Needle=md5,raw");

    const struct {
        const char* why;
        std::string steps;
        std::string how;
    } starts[] = {
        {"it dies before it is ready", kLeave, ended},
        {"it makes no sense", kDone, "it cannot work here"},
        {"it says what is no text", put(result()) + ring(BellKind::failed), "it makes no sense"},
        {"it cannot", put(frame(FrameKind::text, std::array{'n', 'o'})) + ring(BellKind::failed), "no"},
        {"it is of another kind", step(Step::send, "x"), kNonsense},
    };
    for (const auto& row : starts) {
        SCOPED_TRACE(row.why);
        expectLost(with.get(), kLeave, ended);
        toldOf(with.get(), std::string(kAtScan) + kLeave);
        const std::string content(std::string(kAtStart) + row.steps + step(Step::end));
        EXPECT_EQ(vole_scan_buffer(with.get(), content.data(), content.size(), nullptr), VOLE_E_ISOLATION);
        EXPECT_EQ(told(with.get()), "failed: no worker can be started: " + row.how);
        EXPECT_EQ(toldOf(with.get(), "needle"), "found Needle=md5,raw");
    }
    std::string why;
    EXPECT_FALSE(isolatedScanner(set, "/nonexistent/worker", limits, 0, &why));
    EXPECT_EQ(why, "no worker can be started: /nonexistent/worker: No such file or directory");
    EXPECT_FALSE(isolatedScanner(set, "/bin/true", limits, 0, &why));
    EXPECT_EQ(why, "no worker can be started: it ended with status 0");
    // One that ended at its start is no reason to go without.
    const std::string dies = files.write("dies", "#!/bin/sh\nmkdir " + files.path().string() + "/once && kill -9 $$\nexec " +
                                                     VOLE_TEST_WORKER);
    std::filesystem::permissions(dies, std::filesystem::perms::owner_all);
    EXPECT_EQ(toldOf(isolatedScanner(set, dies.c_str(), limits, 100).get(), "needle"), "found Needle=md5,raw");
}

TEST_F(Misbehaviour, volumesAreOnlyThoseThatLieBeside) {
    const auto volume = [](std::uint32_t item, std::uint32_t number) {
        return ring(BellKind::volume, item, number) + step(Step::listen);
    };
    const struct {
        std::string steps, answer;
    } rows[] = {
        {volume(0, 2) + volume(0, 3) + kGood, "clean"},
        {volume(0, 0x7FFFFFFF) + kGood, "clean"},
        {volume(0, 1), kNonsense},
        {volume(0, 0x80000000), kNonsense},
        {volume(1, 2), kNonsense},
        {volume(0xFFFFFFFF, 2), kNonsense},
        {ring(BellKind::volume, 0, 2) + kLeave, "it ended with status 0"},
        {volume(0, 2) + kLeave, "it ended with status 0"},
    };
    const VoleScanner with = scanner();
    ASSERT_TRUE(with);
    files.write("a.r00", "second");
    for (const auto& row : rows) {
        vole_scan_path(with.get(), files.write("a.rar", std::string(kAtScan) + row.steps).c_str(), nullptr);
        const std::string start = row.answer == "clean" ? "" : "failed: its worker is lost: ";
        EXPECT_EQ(told(with.get()), start + row.answer);
        EXPECT_EQ(toldOf(with.get(), "needle"), "found Needle=md5,raw");
    }
}

TEST_F(Misbehaviour, whatItTakesTooLongForIsEnded) {
    const std::string rings = ring(BellKind::full) + step(Step::listen) + step(Step::again);
    const VoleScanner with = scanner();
    ASSERT_TRUE(with);
    for (const std::string& steps : {kSleep, step(Step::spin), rings, kNap + rings}) {
        const auto start = Clock::now();
        expectLost(with.get(), steps, kLate);
        EXPECT_LT(Clock::now() - start, milliseconds(kSanitized ? 20'000 : 5'000));
    }
    limits.max_time_ms = 0;
    const VoleScanner patient = scanner();
    ASSERT_TRUE(patient);
    for (const std::string& steps : {kSleep, kNap + rings}) {
        std::thread canceller([&] {
            std::this_thread::sleep_for(milliseconds(100));
            vole_scanner_cancel(patient.get());
        });
        const std::string content = std::string(kAtScan) + steps;
        EXPECT_EQ(vole_scan_buffer(patient.get(), content.data(), content.size(), nullptr), VOLE_E_WORKER);
        canceller.join();
        EXPECT_EQ(told(patient.get()), "failed: its worker is lost: it did not end its scan when it was told to");
        vole_scanner_rearm(patient.get());
        EXPECT_EQ(toldOf(patient.get(), "needle"), "found Needle=md5,raw");
    }
    // Deaths in a row slow it down, which ends with the first good one.
    const std::string dies = std::string(kAtScan) + kLeave;
    const auto start = Clock::now();
    for (int i = 0; i < 3; ++i) toldOf(with.get(), dies);
    EXPECT_EQ(told(with.get()),
              "failed: its worker is lost: it ended with status 0; 3 were in a row, so the next one has to "
              "wait for 100 ms");
    EXPECT_NE(toldOf(with.get(), dies).find("4 were in a row, so the next one has to wait for 200 ms"),
              std::string::npos);
    EXPECT_EQ(toldOf(with.get(), "needle"), "found Needle=md5,raw");
    EXPECT_GE(Clock::now() - start, milliseconds(300));
    EXPECT_EQ(toldOf(with.get(), dies), "failed: its worker is lost: it ended with status 0");
}

// A host cancels, and then takes longer than the grace before it lets the worker go on: that is not the worker's fault.
TEST_F(Misbehaviour, timeThatTheHostTakesIsNotTheWorkers) {
    const VoleScanner with = scanner();
    ASSERT_TRUE(with);
    Reader reader;
    reader.first = [&] {
        vole_scanner_cancel(with.get());
        std::this_thread::sleep_for(milliseconds(600));
    };
    vole_scanner_set_events(with.get(), Reader::hear, &reader);
    const std::string progress = put(event([](EventFrame& told) { told.type = VOLE_EVENT_PROGRESS; })) +
                                 ring(BellKind::event) + step(Step::listen);
    EXPECT_EQ(toldOf(with.get(), std::string(kAtScan) + progress + progress + kGood), "clean");
}

// Of files that are handed over together, those that have their results keep them.
TEST_F(Misbehaviour, ofFilesTogetherOneIsLost) {
    const VoleScanner with = scanner();
    ASSERT_TRUE(with);
    for (std::size_t results = 0; results <= 4; ++results) {
        for (const std::string& end : {kLeave, kDone, put(name(5)) + kDone}) {
            std::string steps;
            for (std::size_t i = 0; i < results; ++i) steps += put(result()) + step(Step::finish);
            const std::vector<std::string> names{files.write("0", std::string(kAtScan) + steps + end),
                                                 files.write("1", "x"), files.write("2", "needle"),
                                                 files.write("3", "y")};
            std::vector<const char*> paths;
            for (const std::string& path : names) paths.push_back(path.c_str());
            std::string answers, expected;
            EXPECT_EQ(toldOf(with.get(), "x"), "clean");  // Previously, this could be taken for the first one's answer.
            const auto tell = [](void* context, std::size_t index, vole_error error, vole_outcome outcome) {
                *static_cast<std::string*>(context) +=
                    std::to_string(index) + std::to_string(error) + vole_outcome_name(outcome) + " ";
                return 0;
            };
            EXPECT_EQ(vole_scan_paths(with.get(), paths.data(), paths.size(), tell, &answers), VOLE_OK);
            for (std::size_t i = 0; i < paths.size(); ++i) {
                const char* const right = i == 2 && results <= 2 && i != results ? "0found " : "0clean ";
                const bool hasMore = results == 4 && end != kLeave && end != kDone;
                expected += std::to_string(i) + (i == results || (i == 3 && hasMore) ? "10failed " : right);
            }
            EXPECT_EQ(answers, expected);
        }
    }
}

TEST_F(Misbehaviour, deathsLeaveNothingBehind) {
    constexpr int kDeaths = kSanitized ? 100 : 2000;
    const std::string dies = std::string(kAtScan) + kLeave;
    const std::string before = possessions();
    {
        const VoleScanner with = scanner();
        ASSERT_TRUE(with);
        const std::string during = possessions();
        for (int i = 0; i < kDeaths; ++i) {
            ASSERT_EQ(toldOf(with.get(), dies), "failed: its worker is lost: it ended with status 0") << i;
            ASSERT_EQ(toldOf(with.get(), "needle"), "found Needle=md5,raw") << i;
        }
        EXPECT_EQ(possessions(), during);
        EXPECT_EQ(children().size(), 1U);
    }
    EXPECT_EQ(possessions(), before);
    siginfo_t child{};
    EXPECT_EQ(::waitid(P_ALL, 0, &child, WEXITED | WNOHANG), -1) << "there is no child, dead or alive";
}

}  // namespace
