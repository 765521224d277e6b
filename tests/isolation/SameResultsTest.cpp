// What a scanner answers does not depend on where its contents are looked at: every way to hand over a content, with
// every kind of content and host, once in this process and once by a worker.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <functional>
#include <random>
#include <thread>

#include "Isolated.h"
#include "robustness/Scene.h"

namespace {

using ZOV_SPACE::OwnFd;

// All that a host can tell of a scan, but how long it took.
std::string account(const vole_scanner* scanner, vole_error error) {
    const vole_result* const result = vole_scanner_result(scanner);
    const vole_counters& counters = *vole_result_counters(result);
    std::ostringstream text;
    text << error << " " << told(scanner);
    for (std::size_t i = 0; i < vole_result_reason_count(result); ++i) {
        text << " " << vole_result_reason(result, i)->text;
    }
    text << " " << counters.bytes_read << " " << counters.bytes_unpacked << " " << counters.members << " "
         << counters.deepest_level << " " << counters.findings << " " << counters.reasons;
    return text.str();
}

// What a content begins with, what lies behind its middle, and what is behind its end.
std::string excerpt(const vole_content& content) {
    std::string bytes(100'000, '\0'), text;
    for (const std::uint64_t at : {std::uint64_t{0}, content.size / 2, content.size}) {
        const std::ptrdiff_t count = vole_content_read(&content, at, bytes.data(), bytes.size());
        text += std::to_string(count) + ":" + toHex(md5Of(bytes)) + " ";
    }
    return text;
}

// What a host can tell of an event besides what an Ear hears.
std::string factsOf(const vole_event& event) {
    std::ostringstream text;
    text << event.member.count << " " << event.size << " " << event.bytes_done << " ";
    if (const vole_finding* const it = event.finding) {
        text << it->name << it->kind << it->form << it->allowed << it->offset << textOf(it->member);
    }
    if (const vole_reason* const it = event.reason) text << it->text << it->code << textOf(it->member);
    if (const vole_content* const it = event.content) {
        text << it->form << it->size << " " << it->packed_size << it->method << it->is_packed << it->checksum
             << excerpt(*it);
    }
    return text.str() + "\n";
}

// Answers all that it came to.
using Scan = std::function<std::string(vole_scanner*)>;
using Action = void(vole_scanner*);

class SameResults : public IsolatedTest {
protected:
    void SetUp() override {
        scene::writePatterns(patterns, "P");
        patterns.write("c.hdb", md5Record("harmless", "Fa-P") + md5Record("text", "Text"));
        isolate(VOLE_WORKER, 5000);
        here = scannerOf(set);
    }

    // Answers what both do. A host that listens does something at the last event that it wants, and ends the scan.
    std::string same(const Scan& scan, std::size_t last = 0, Action* atLast = nullptr, unsigned flags = 0) {
        std::string answers[2];
        Ear ears[2];
        for (int i = 0; i < 2; ++i) {
            vole_scanner* const scanner = i == 0 ? here.get() : isolated.get();
            heard = 0;
            ears[i].react = [&, scanner](const vole_event& event) {
                ears[i].heard += factsOf(event);
                if (heard++ < last) return 0;
                atLast(scanner);
                return 1;
            };
            vole_scanner_set_events(scanner, atLast ? Ear::hear : nullptr, &ears[i]);
            EXPECT_EQ(vole_scanner_set_flags(scanner, flags), VOLE_OK);
            answers[i] = scan(scanner);
        }
        EXPECT_EQ(answers[0], answers[1]);
        EXPECT_EQ(ears[0].heard, ears[1].heard);
        return answers[0];
    }

    // As hosts of all kinds, one of which ends the scan in the middle.
    void sameForAll(const Scan& scan) {
        Action* const nothing = [](vole_scanner*) {};
        same(scan);
        same(scan, SIZE_MAX, nothing, VOLE_SCAN_SHALLOW);
        same(scan, SIZE_MAX, nothing, VOLE_SCAN_ALL_MATCHES | VOLE_SCAN_CONTENTS);
        same(scan, heard / 2, nothing, VOLE_SCAN_ALL_MATCHES | VOLE_SCAN_CONTENTS);
    }

    VoleScanner here;
    std::size_t heard = 0;
};

Scan ofPath(const std::string& path) {
    return [path](vole_scanner* with) { return account(with, vole_scan_path(with, path.c_str(), nullptr)); };
}

Scan ofFd(int fd) {
    return [fd](vole_scanner* with) { return account(with, vole_scan_fd(with, fd, nullptr)); };
}

Scan ofBuffer(const std::string& content) {
    return [&](vole_scanner* with) {
        return account(with, vole_scan_buffer(with, content.data(), content.size(), nullptr));
    };
}

Scan ofStream(const std::string& content, bool fails = false) {
    return [&content, fails](vole_scanner* with) { return account(with, scanStream(with, content, fails)); };
}

Scan ofPaths(const std::vector<std::string>& names) {
    return [names](vole_scanner* with) {
        std::string all;
        for (const std::string& answer : toldOfEach(with, names, account)) all += answer + "\n";
        return all;
    };
}

TEST_F(SameResults, ofEveryWayToHandOverAContent) {
    ZipBuilder methods;
    for (int method = 0; method < 100; ++method) methods.add({"m", "packed", method});
    std::vector<std::string> contents{"", "x", "harmless", "a text", scene::words(80'000), methods.archive()};
    contents.push_back(scene::zipOf({{"stored", scene::words(5'500'000), 0}, {"n", scene::kNeedle}}));
    for (const scene::Content& content : scene::contents()) contents.push_back(content.bytes);
    std::vector<std::string> names;
    for (const std::string& content : contents) {
        SCOPED_TRACE(names.size());
        const std::string path = names.emplace_back(files.write(std::to_string(names.size()), content));
        const OwnFd reads(::open(path.c_str(), O_RDONLY | O_CLOEXEC)), both(::open(path.c_str(), O_RDWR | O_CLOEXEC)),
            writes(::open(path.c_str(), O_WRONLY | O_CLOEXEC)), only(::open(path.c_str(), O_PATH | O_CLOEXEC));
        ::lseek(both.get(), 1, SEEK_SET);
        for (const Scan& scan : {ofPath(path), ofFd(reads.get()), ofFd(both.get()), ofBuffer(content),
                                 ofStream(content), ofStream(content, true)}) {
            sameForAll(scan);
        }
        EXPECT_EQ(::lseek(both.get(), 0, SEEK_CUR), 1);
        for (const int fd : {writes.get(), only.get()}) {
            if (content.empty()) continue;  // That fails as well, with another text: reading it is only tried.
            EXPECT_TRUE(same(ofFd(fd)).starts_with("6 failed")) << "what the host cannot read nobody reads for it";
        }
    }
    ::mkfifo((files / "fifo").c_str(), 0600);
    const std::vector<std::string> others{
        files / "gone", files.path(), files / "fifo", "/proc/version", "/dev/null", "/dev/tty", ""};
    for (const std::string& name : others) sameForAll(ofPath(name));
    names.insert(names.end(), others.begin(), others.end());
    for (std::size_t i = 0; i < 50; ++i) names.push_back(names[i]);
    sameForAll(ofPaths(names));
}

TEST_F(SameResults, ofWhatIsNoFileOrMoreThanLimitsAllow) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const OwnFd readEnd(ends[0]), writeEnd(ends[1]), folder(::open("/", O_RDONLY | O_CLOEXEC));
    for (const int fd : {ends[0], ends[1], folder.get(), 999, -1}) same(ofFd(fd));
    const std::string unpackable =
        scene::zipOf({{"a", std::string(50'000, 'a')}, {"in", scene::zipOf({{"n", scene::kNeedle}})}});
    const std::string path = files.write("f", unpackable);
    const std::pair<vole_limits, const char*> rows[] = {
        {limits(&vole_limits::max_content, 100), "size-limit"}, {limits(&vole_limits::max_member, 100), "size-limit"},
        {limits(&vole_limits::max_total, 100), "total-limit"},  {limits(&vole_limits::max_members, 1), "member-limit"},
        {limits(&vole_limits::max_depth, 1), "depth-limit"},    {limits(&vole_limits::max_ratio, 2), "ratio-limit"}};
    for (const auto& [terms, code] : rows) {
        vole_scanner_set_limits(here.get(), &terms);
        vole_scanner_set_limits(isolated.get(), &terms);
        for (const Scan& scan : {ofPath(path), ofBuffer(unpackable), ofStream(unpackable), ofPaths({40, path})}) {
            EXPECT_NE(same(scan).find(code), std::string::npos) << code;
        }
    }
}

TEST_F(SameResults, ofScansThatAreCancelledOrTakeTooLong) {
    const std::string content = scene::zipOf({{"a", "a"}, {"b", "b"}, {"n", scene::kNeedle}});
    Action* const byThread = [](vole_scanner* scanner) { std::thread(vole_scanner_cancel, scanner).join(); };
    for (std::size_t at = 0; at < 10; ++at) {
        Action* const cancel = at % 2 ? byThread : vole_scanner_cancel;
        EXPECT_NE(same(ofBuffer(content), at / 2, cancel).find("cancelled"), std::string::npos);
        EXPECT_NE(same(ofPath("/nonexistent")).find("cancelled"), std::string::npos) << "until it is armed again";
        vole_scanner_rearm(here.get());
        vole_scanner_rearm(isolated.get());
        EXPECT_NE(same(ofBuffer(content)).find("found"), std::string::npos);
    }
    const std::string endless = scene::zipOf({{"a", std::string(200 << 20, 'a')}, {"n", scene::kNeedle}});
    const vole_limits hurried = limits(&vole_limits::max_time_ms, 30), usual = limits(&vole_limits::max_time_ms, 500);
    for (vole_scanner* const scanner : {here.get(), isolated.get()}) {
        std::thread canceller([scanner] {
            ::usleep(50'000);
            vole_scanner_cancel(scanner);
        });
        EXPECT_EQ(toldOf(scanner, endless), "incomplete cancelled");
        canceller.join();
        vole_scanner_rearm(scanner);
        vole_scanner_set_limits(scanner, &hurried);
        EXPECT_EQ(toldOf(scanner, endless), "incomplete time-limit");
        vole_scanner_set_limits(scanner, &usual);
    }
    Action* const dawdle = [](vole_scanner*) { ::usleep(600'000); };
    EXPECT_NE(same(ofBuffer(scene::zipOf({{"a", "a"}})), 0, dawdle).find("cancelled"), std::string::npos);
}

TEST_F(SameResults, ofRealArchives) {
    const std::filesystem::path samples = VOLE_SAMPLES_DIR;
    if (!std::filesystem::exists(samples / "manifest.json")) {
        GTEST_SKIP() << "NO SAMPLES in " << samples << ": set VOLE_SAMPLES_DIR to test with real archives.";
    }
    std::vector<std::string> names;
    for (const std::filesystem::directory_entry& file : std::filesystem::recursive_directory_iterator(samples)) {
        if (file.is_regular_file()) names.push_back(file.path());
    }
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        sameForAll(ofPath(name));
    }
    sameForAll(ofPaths(names));
}

// Workers that are killed at any time cost the files that they had, and no others.
TEST_F(SameResults, butOfFilesWhoseWorkersAreKilled) {
    std::vector<std::string> kinds{std::string(70'000, 'l')}, names;
    for (const scene::Content& content : scene::contents()) kinds.push_back(content.bytes);
    std::minstd_rand random(1);
    for (std::size_t i = 0; i < (kSanitized ? 500 : 3000); ++i) {
        const auto kind = random() / 8 % 50;
        const std::string content = kind < kinds.size() ? kinds[kind] : std::string(random() % 5000, 'x');
        names.push_back(files.write(std::to_string(i), content));
    }
    const auto right = toldOfEach(here.get(), names, toldUnlessLost);
    std::atomic<std::size_t> kills = 0, good = 0;
    std::atomic<bool> ended = false;
    std::thread killer([&] {
        for (std::size_t seen = 0; !ended;) {
            ::usleep(static_cast<useconds_t>(random() % 6'000));  // After an answer; a busy machine may give none.
            if (good == std::exchange(seen, good)) continue;
            for (const pid_t child : children()) {
                // By a descriptor, and only once it is known to be ours: numbers of processes are used again.
                const OwnFd process(static_cast<int>(::syscall(SYS_pidfd_open, child, 0U)));
                if (std::ranges::count(children(), child) == 0) continue;
                kills += ::syscall(SYS_pidfd_send_signal, process.get(), SIGKILL, nullptr, 0U) == 0;
            }
        }
    });
    const auto answers = toldOfEach(isolated.get(), names, [&](vole_scanner* scanner, vole_error error) {
        good += error == VOLE_OK;
        return toldUnlessLost(scanner, error);
    });
    ended = true;
    killer.join();
    ASSERT_EQ(answers.size(), right.size());
    const auto lost = static_cast<std::size_t>(std::ranges::count(answers, "lost"));
    for (std::size_t i = 0; i < right.size(); ++i) {
        EXPECT_TRUE(answers[i] == "lost" || answers[i] == right[i]) << i << ": " << answers[i];
    }
    EXPECT_GT(lost, 0U);
    EXPECT_LE(lost, kills);
}

}  // namespace
