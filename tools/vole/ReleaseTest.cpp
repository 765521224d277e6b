#include "ReleaseTest.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <system_error>

#include "Descriptor.h"
#include "Interruption.h"
#include "Messages.h"
#include "Processors.h"
#include "TargetSource.h"
#include "VoleLibrary.h"
#include "Workers.h"

namespace {

using TakeFailure = std::function<void(const TestFailure&)>;
using Names = std::set<std::string>;

// All of a file that people write.
std::string readText(const std::string& path) {
    constexpr std::uint64_t kMost = std::uint64_t{256} << 20;
    const Descriptor file(path.c_str());
    struct stat status;
    if (!file.status(status)) throw LoadError(path + ": " + systemText(errno));
    if (!S_ISREG(status.st_mode)) throw LoadError(path + ": not a regular file");
    if (static_cast<std::uint64_t>(status.st_size) > kMost) throw LoadError(path + ": too large for a manifest");
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t count = ::read(file.number(), &text[done], text.size() - done);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) throw LoadError(path + ": " + (count < 0 ? systemText(errno) : "it is being written to"));
        done += static_cast<std::size_t>(count);
    }
    return text;
}

// The same for all ways to write it.
std::string plainPath(const std::string& path) {
    std::string plain = std::filesystem::path(path).lexically_normal().string();
    if (plain.size() > 1 && plain.ends_with('/')) plain.pop_back();
    return plain;
}

bool isSameFile(const std::string& a, const std::string& b) {
    std::error_code none;
    return std::filesystem::equivalent(a, b, none);
}

// Names by path.
std::map<std::string, Names> readManifest(const std::string& path, const std::string& folder) {
    std::istringstream text(readText(path));
    std::map<std::string, Names> expected;
    std::string line;
    for (int number = 1; std::getline(text, line); ++number) {
        const auto refuse = [&](const char* why) { throw LoadError(path + ":" + std::to_string(number) + ": " + why); };
        if (line.ends_with('\r')) line.pop_back();
        if (line.empty() || line.starts_with('#')) continue;
        const std::size_t tab = line.find('\t');
        if (tab == std::string::npos || tab == 0 || tab + 1 == line.size()) refuse("no path, tab and name");
        const std::string file = plainPath(line.substr(0, tab));
        if (file.starts_with('/') || file == ".." || file.starts_with("../")) refuse("not below the folder");
        expected[plainPath(std::string(folder).append("/").append(file))].insert(line.substr(tab + 1));
    }
    return expected;
}

Names namesIn(const FileReport& report) {
    Names names;
    for (const Finding& finding : report.findings) {
        if (!finding.allowed) names.insert(finding.name);
    }
    return names;
}

// The first reason, with its member.
std::string whyUnseen(const FileReport& report) {
    if (report.reasons.empty()) return "not all of it was looked at";
    std::string text = report.reasons.front().text;
    for (const std::string& name : report.reasons.front().member) text += "/" + name;
    return text;
}

class Tester {
public:
    Tester(const Engine& engine, const ReleaseTestOptions& options, const TakeFailure& take)
        : _engine(engine), _options(options), _take(take) {}

    void testClean(const std::string& corpus) {
        const std::uint64_t before = _tally.clean;
        walk({corpus}, [this](const FileReport& report) {
            ++_tally.clean;
            const Names found = namesIn(report);
            if (!found.empty()) return fail(TestFailure::Kind::found, report, {}, found);
            checkSeen(report);
        });
        if (_tally.clean == before && !isInterrupted()) raiseEmpty(corpus);
    }

    void testInfected(const std::string& corpus) {
        const std::string folder = plainPath(corpus);
        const std::string manifest = _options.manifest.empty() ? folder + "/" + kManifestName : _options.manifest;
        auto expected = readManifest(manifest, folder);
        const std::uint64_t before = _tally.infected;
        walk({folder}, [&](const FileReport& report) {
            if (isSameFile(report.path, manifest)) return;
            ++_tally.infected;
            const auto listed = expected.extract(plainPath(report.path));
            if (listed.empty()) return fail(TestFailure::Kind::unlisted, report, {}, namesIn(report));
            checkFound(report, listed.mapped());
        });
        if (_tally.infected == before && expected.empty() && !isInterrupted()) raiseEmpty(corpus);
        if (isInterrupted()) return;
        for (const auto& [path, names] : expected) {
            FileReport absent;
            absent.path = path;
            fail(TestFailure::Kind::absent, absent, names, {});
        }
    }

    ReleaseTestTally tally() const { return _tally; }

private:
    // A release must not pass because a disk is not there.
    [[noreturn]] static void raiseEmpty(const std::string& corpus) { throw LoadError(corpus + ": no files to test"); }

    template <class Check>
    void walk(const std::vector<std::string>& paths, Check check) {
        const WalkRules rules;
        TargetSource source(paths, nullptr, rules);
        const unsigned jobs = _options.jobs != 0 ? _options.jobs : processors();
        std::vector<std::unique_ptr<FileScanner>> scanners;
        for (unsigned i = 0; i < jobs; ++i) scanners.push_back(_engine.newScanner());
        Workers workers([&](std::vector<Target>& targets, std::size_t most) { return source.next(targets, most); },
                        [&](const FileReport& report) {
                            check(report);
                            return true;
                        });
        workers.run(scanners);
    }

    void checkFound(const FileReport& report, const Names& expected) {
        const Names found = namesIn(report);
        const bool isWhole = std::includes(found.begin(), found.end(), expected.begin(), expected.end());
        if (!isWhole && report.outcome != Outcome::failed) {
            return fail(TestFailure::Kind::missing, report, expected, found);
        }
        if (report.outcome == Outcome::failed) fail(TestFailure::Kind::unreadable, report, expected, {});
    }

    void checkSeen(const FileReport& report) {
        const bool isUnseen = report.outcome == Outcome::incomplete && !_options.incompleteIsFine;
        if (isUnseen) fail(TestFailure::Kind::unseen, report, {}, {});
        if (report.outcome == Outcome::failed) fail(TestFailure::Kind::unreadable, report, {}, {});
    }

    void fail(TestFailure::Kind kind, const FileReport& report, const Names& expected, const Names& found) {
        ++_tally.failures;
        std::string text = report.error;
        if (report.outcome == Outcome::incomplete) text = whyUnseen(report);
        _take({kind, report.path, {expected.begin(), expected.end()}, {found.begin(), found.end()}, std::move(text)});
    }

    const Engine& _engine;
    const ReleaseTestOptions& _options;
    const TakeFailure& _take;
    ReleaseTestTally _tally;
};

}  // namespace

ReleaseTestTally testRelease(const ReleaseTestOptions& options, const TakeFailure& take) {
    LibraryOptions engineOptions = options.engine;
    engineOptions.allMatches = true;
    const LibraryEngine engine(engineOptions);
    noteSignals();
    Tester tester(engine, options, take);
    for (const std::string& corpus : options.clean) {
        if (!isInterrupted()) tester.testClean(corpus);
    }
    for (const std::string& corpus : options.infected) {
        if (!isInterrupted()) tester.testInfected(corpus);
    }
    ReleaseTestTally tally = tester.tally();
    tally.signatures = engine.signatureCount().value_or(0);
    tally.setId = engine.id();
    tally.interrupted = isInterrupted();
    return tally;
}
