// What a scanner answers does not depend on where its contents are looked at: every way to hand over a content, with
// every kind of content and host, once in this process and once by a worker.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <iostream>
#include <thread>

#include "Isolated.h"
#include "robustness/Scene.h"
#include "support/SignatureText.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

// All that a host can tell of a scan, but how long it took.
std::string account(const vole_scanner* scanner) {
    const vole_result* const result = vole_scanner_result(scanner);
    std::string text = told(scanner);
    for (std::size_t i = 0; i < vole_result_reason_count(result); ++i) {
        text.append(" \"").append(vole_result_reason(result, i)->text).append("\"");
    }
    const vole_counters& counters = *vole_result_counters(result);
    for (const std::uint64_t count : {counters.bytes_read, counters.bytes_unpacked, counters.members,
                                      counters.deepest_level, counters.findings, counters.reasons}) {
        text.append(" ").append(std::to_string(count));
    }
    return text;
}

// The beginning of a content, what lies across its middle, and its end.
std::string excerpt(const vole_content& content) {
    std::string text;
    for (const std::uint64_t at :
         {std::uint64_t{0}, content.size / 2, content.size - std::min<std::uint64_t>(content.size, 9)}) {
        std::string bytes(at == 0 ? 100'000 : 10, '\0');
        const std::ptrdiff_t count = vole_content_read(&content, at, bytes.data(), bytes.size());
        bytes.resize(static_cast<std::size_t>(std::max<std::ptrdiff_t>(count, 0)));
        text += std::to_string(count) + ":" + md5Of(bytes) + " ";
    }
    return text;
}

// A host that writes down all that it is told, and ends the scan at some event.
struct Host {
    std::size_t last = SIZE_MAX;
    std::function<void(vole_scanner*)> atLast = [](vole_scanner*) {};
    vole_scanner* scanner = nullptr;
    std::vector<std::string> heard = {};

    static int hear(void* context, const vole_event* event) {
        auto& [last, atLast, scanner, heard] = *static_cast<Host*>(context);
        std::string text = std::to_string(event->type) + " " + textOf(event->member) + "#" +
                           std::to_string(event->member.count) + " " + std::to_string(event->size) + " " +
                           std::to_string(event->bytes_done);
        if (const vole_finding* const it = event->finding) {
            text += " "s + it->name + std::to_string(it->kind) + std::to_string(it->form) +
                    std::to_string(it->allowed) + std::to_string(it->offset) + textOf(it->member);
        }
        if (const vole_reason* const it = event->reason)
            text += " "s + it->text + std::to_string(it->code) + textOf(it->member);
        if (const vole_content* const it = event->content) {
            text += " "s + std::to_string(it->form) + std::to_string(it->size) + " " + std::to_string(it->packed_size) +
                    it->method + std::to_string(it->is_packed) + std::to_string(it->checksum) + excerpt(*it);
        }
        heard.push_back(text);
        if (heard.size() <= last) return 0;
        atLast(scanner);
        return 1;
    }
};

// Answers all that it came to.
using Scan = std::function<std::string(vole_scanner*)>;

class SameResults : public testing::Test {
protected:
    SameResults() {
        scene::writePatterns(patterns, "P");
        patterns.write("c.hdb", md5Record("harmless", "Fa-P") + md5Record("text", "Text"));
        set = loadedSet(patterns.path());
    }

    void SetUp() override { renew(VOLE_LIMITS_INIT); }

    void renew(const vole_limits& limits) {
        here = scannerOf(set, &limits);
        there = isolatedScanner(set, VOLE_WORKER, limits);
        ASSERT_TRUE(there);
    }

    // Answers what both do.
    std::string same(const Scan& scan, const Host* host = nullptr, unsigned flags = 0) {
        std::string answers[2];
        Host hosts[2];
        for (int i = 0; i < 2; ++i) {
            vole_scanner* const scanner = i == 0 ? here.get() : there.get();
            if (host) hosts[i] = *host;
            hosts[i].scanner = scanner;
            vole_scanner_set_events(scanner, host ? Host::hear : nullptr, &hosts[i]);
            EXPECT_EQ(vole_scanner_set_flags(scanner, flags), VOLE_OK);
            answers[i] = scan(scanner);
        }
        EXPECT_EQ(answers[0], answers[1]);
        EXPECT_EQ(hosts[0].heard, hosts[1].heard);
        heard = hosts[0].heard.size();
        return answers[0];
    }

    // As hosts of all kinds, one of which ends the scan in the middle.
    void sameForAll(const Scan& scan) {
        same(scan);
        const Host patient;
        same(scan, &patient, VOLE_SCAN_SHALLOW);
        same(scan, &patient, VOLE_SCAN_ALL_MATCHES | VOLE_SCAN_CONTENTS);
        const Host impatient{heard / 2};
        same(scan, &impatient, VOLE_SCAN_ALL_MATCHES | VOLE_SCAN_CONTENTS);
    }

    TempDir patterns, files;
    VoleSet set;
    VoleScanner here, there;
    std::size_t heard = 0;
};

Scan of(const std::function<vole_error(vole_scanner*, vole_outcome*)>& scan) {
    return [scan](vole_scanner* with) {
        vole_outcome outcome = VOLE_OUTCOME_CLEAN;
        const vole_error error = scan(with, &outcome);
        return std::to_string(error) + vole_outcome_name(outcome) + " " + account(with);
    };
}

Scan ofPath(const std::string& path) {
    return of(
        [path](vole_scanner* with, vole_outcome* outcome) { return vole_scan_path(with, path.c_str(), outcome); });
}

Scan ofFd(int fd) {
    return of([fd](vole_scanner* with, vole_outcome* outcome) { return vole_scan_fd(with, fd, outcome); });
}

Scan ofBuffer(const std::string& content) {
    return of([&](vole_scanner* with, vole_outcome* outcome) {
        return vole_scan_buffer(with, content.data(), content.size(), outcome);
    });
}

// In pieces; it fails, if it is to, where it should end.
Scan ofStream(const std::string& content, bool fails = false) {
    struct Source {
        std::string_view left;
        bool fails;
    };
    const vole_read_fn read = [](void* context, void* buffer, std::size_t size) -> std::ptrdiff_t {
        auto& [left, isToFail] = *static_cast<Source*>(context);
        const std::size_t count = left.copy(static_cast<char*>(buffer), std::min<std::size_t>(size, 100'000));
        left.remove_prefix(count);
        return count == 0 && isToFail ? -1 : static_cast<std::ptrdiff_t>(count);
    };
    return of([&content, fails, read](vole_scanner* with, vole_outcome* outcome) {
        Source source{content, fails};
        return vole_scan_stream(with, read, &source, outcome);
    });
}

Scan ofPaths(const std::vector<std::string>& names) {
    return [&](vole_scanner* with) {
        std::vector<const char*> paths;
        for (const std::string& name : names) paths.push_back(name.c_str());
        std::pair<vole_scanner*, std::string> answers(with, "");
        const auto tell = [](void* context, std::size_t index, vole_error error, vole_outcome outcome) {
            auto& [scanner, all] = *static_cast<std::pair<vole_scanner*, std::string>*>(context);
            all += std::to_string(index) + " " + std::to_string(error) + vole_outcome_name(outcome) + account(scanner) +
                   "\n";
            return 0;
        };
        return std::to_string(vole_scan_paths(with, paths.data(), paths.size(), tell, &answers)) + answers.second;
    };
}

TEST_F(SameResults, ofEveryWayToHandOverAContent) {
    std::vector<std::string> contents{"",
                                      "x",
                                      "harmless",
                                      "a text",
                                      scene::words(80'000),
                                      scene::zipOf({{"stored", scene::words(5'500'000), 0}, {"n", scene::kNeedle}})};
    for (const scene::Content& content : scene::contents()) contents.push_back(content.bytes);
    ZipBuilder methods;
    for (int method = 0; method < 100; ++method) methods.add({"m", "packed", method});
    contents.push_back(methods.archive());
    std::vector<std::string> names;
    for (const std::string& content : contents) {
        SCOPED_TRACE(names.size());
        const std::string path = files.write(std::to_string(names.size()), content);
        names.push_back(path);
        const ZOV_SPACE::OwnFd reads(::open(path.c_str(), O_RDONLY | O_CLOEXEC)),
            both(::open(path.c_str(), O_RDWR | O_CLOEXEC)), writes(::open(path.c_str(), O_WRONLY | O_CLOEXEC)),
            only(::open(path.c_str(), O_PATH | O_CLOEXEC));
        ::lseek(both.get(), 1, SEEK_SET);
        for (const Scan& scan : {ofPath(path), ofFd(reads.get()), ofFd(both.get()), ofBuffer(content),
                                 ofStream(content), ofStream(content, true)}) {
            sameForAll(scan);
        }
        EXPECT_EQ(::lseek(both.get(), 0, SEEK_CUR), 1);
        for (const int fd : {writes.get(), only.get()}) {
            if (content.empty()) continue;  // Reading it is only tried.
            EXPECT_EQ(same(ofFd(fd)).substr(0, 7), "6failed") << "what the host cannot read nobody reads for it";
        }
    }
    ::mkfifo((files / "fifo").c_str(), 0600);
    names.insert(names.end(),
                 {files / "gone", files.path(), files / "fifo", "/proc/version", "/dev/null", "/dev/tty", ""});
    for (const std::string& name : std::vector(names.end() - 7, names.end())) sameForAll(ofPath(name));
    for (int i = 0; i < 50; ++i) names.push_back(names[static_cast<std::size_t>(i)]);
    sameForAll(ofPaths(names));
}

TEST_F(SameResults, ofWhatIsNoFileOrMoreThanLimitsAllow) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const ZOV_SPACE::OwnFd readEnd(ends[0]), writeEnd(ends[1]), folder(::open("/", O_RDONLY | O_CLOEXEC));
    for (const int fd : {ends[0], ends[1], folder.get(), 999, -1}) same(ofFd(fd));
    const std::string unpackable =
        scene::zipOf({{"a", std::string(50'000, 'a')}, {"in", scene::zipOf({{"n", scene::kNeedle}})}});
    const std::string path = files.write("f", unpackable);
    const std::vector<std::string> names(40, path);
    using Field = std::pair<std::function<void(vole_limits&)>, const char*>;
    for (const auto& [limit, code] : {Field{[](vole_limits& of) { of.max_content = 100; }, "size-limit"},
                                      {[](vole_limits& of) { of.max_member = 100; }, "size-limit"},
                                      {[](vole_limits& of) { of.max_total = 100; }, "total-limit"},
                                      {[](vole_limits& of) { of.max_members = 1; }, "member-limit"},
                                      {[](vole_limits& of) { of.max_depth = 1; }, "depth-limit"},
                                      {[](vole_limits& of) { of.max_ratio = 2; }, "ratio-limit"}}) {
        vole_limits limits = VOLE_LIMITS_INIT;
        limit(limits);
        renew(limits);
        for (const Scan& scan : {ofPath(path), ofBuffer(unpackable), ofStream(unpackable), ofPaths(names)}) {
            EXPECT_NE(same(scan).find(code), std::string::npos) << code;
        }
    }
    vole_limits hurried = VOLE_LIMITS_INIT;
    hurried.max_time_ms = 30;
    renew(hurried);
    Host slow{0, [](vole_scanner*) { ::usleep(60'000); }};
    EXPECT_NE(same(ofPath(path), &slow).find("cancelled"), std::string::npos);
    const std::string endless = scene::zipOf({{"a", std::string(200 << 20, 'a')}});
    for (vole_scanner* const scanner : {here.get(), there.get()}) {
        vole_scanner_set_events(scanner, nullptr, nullptr);
        EXPECT_EQ(toldOf(scanner, endless), "incomplete time-limit");
    }
}

TEST_F(SameResults, ofScansThatAreCancelled) {
    const std::string content = scene::zipOf({{"a", "a"}, {"b", "b"}, {"n", scene::kNeedle}});
    for (std::size_t at = 0; at < 5; ++at) {
        Host host{at};
        for (const bool byThread : {false, true}) {
            host.atLast = [byThread](vole_scanner* scanner) {
                byThread ? std::thread(vole_scanner_cancel, scanner).join() : vole_scanner_cancel(scanner);
            };
            EXPECT_NE(same(ofBuffer(content), &host).find("cancelled"), std::string::npos);
            EXPECT_NE(same(ofPath("/nonexistent")).find("cancelled"), std::string::npos) << "until it is armed again";
            vole_scanner_rearm(here.get()), vole_scanner_rearm(there.get());
            EXPECT_NE(same(ofBuffer(content)).find("found"), std::string::npos);
        }
    }
    const std::string large = scene::zipOf({{"a", std::string(200 << 20, 'a')}, {"n", scene::kNeedle}});
    std::thread canceller([this] {
        ::usleep(50'000);
        vole_scanner_cancel(there.get());
    });
    vole_scan_buffer(there.get(), large.data(), large.size(), nullptr);
    canceller.join();
    EXPECT_EQ(told(there.get()), "incomplete cancelled");
}

TEST_F(SameResults, ofRealArchives) {
    const fs::path samples = VOLE_SAMPLES_DIR;
    if (!fs::exists(samples / "manifest.json")) {
        GTEST_SKIP() << "NO SAMPLES in " << samples << ": set VOLE_SAMPLES_DIR to test with real archives.";
    }
    std::vector<std::string> names;
    for (const fs::directory_entry& file : fs::recursive_directory_iterator(samples)) {
        if (file.is_regular_file()) names.push_back(file.path());
    }
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        sameForAll(ofPath(name));
    }
    sameForAll(ofPaths(names));
    std::cout << names.size() << " files\n";
}

}  // namespace
