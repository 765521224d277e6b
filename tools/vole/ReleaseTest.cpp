#include "ReleaseTest.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <map>
#include <memory>
#include <set>

#include "Interruption.h"
#include "Messages.h"
#include "Processors.h"
#include "TargetSource.h"
#include "VoleLibrary.h"
#include "Workers.h"

namespace {

using TakeFailure = std::function<void(const TestFailure&)>;
using Names = std::set<std::string>;

std::string withSlash(const std::string& folder) { return folder.ends_with('/') ? folder : folder + "/"; }

// Names by path.
std::map<std::string, Names> readManifest(const std::string& path, const std::string& folder) {
    std::ifstream file(path);
    if (!file) throw LoadError(path + ": " + systemText(errno));
    std::map<std::string, Names> expected;
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        if (line.ends_with('\r')) line.pop_back();
        if (line.empty() || line.starts_with('#')) continue;
        const std::size_t tab = line.find('\t');
        if (tab == std::string::npos || tab == 0 || tab + 1 == line.size()) {
            throw LoadError(path + ":" + std::to_string(number) + ": no path, tab and name");
        }
        expected[folder + line.substr(0, tab)].insert(line.substr(tab + 1));
    }
    if (file.bad()) throw LoadError(path + ": cannot be read");
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

    void testClean() {
        walk(_options.clean, [this](const FileReport& report) {
            ++_tally.clean;
            const Names found = namesIn(report);
            if (!found.empty()) return fail(TestFailure::Kind::found, report, {}, found);
            checkSeen(report);
        });
    }

    void testInfected(const std::string& corpus) {
        const std::string folder = withSlash(corpus);
        const std::string manifest = _options.manifest.empty() ? folder + kManifestName : _options.manifest;
        auto expected = readManifest(manifest, folder);
        walk({folder}, [&](const FileReport& report) {
            if (report.path == manifest) return;
            ++_tally.infected;
            const auto listed = expected.extract(report.path);
            if (listed.empty()) return fail(TestFailure::Kind::unlisted, report, {}, namesIn(report));
            checkFound(report, listed.mapped());
        });
        if (isInterrupted()) return;
        for (const auto& [path, names] : expected) {
            FileReport absent;
            absent.path = path;
            fail(TestFailure::Kind::absent, absent, names, {});
        }
    }

    ReleaseTestTally tally() const { return _tally; }

private:
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
        if (report.outcome == Outcome::incomplete) fail(TestFailure::Kind::unseen, report, {}, {});
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
    tester.testClean();
    for (const std::string& corpus : options.infected) {
        if (!isInterrupted()) tester.testInfected(corpus);
    }
    ReleaseTestTally tally = tester.tally();
    tally.signatures = engine.signatureCount().value_or(0);
    tally.setId = engine.id();
    tally.interrupted = isInterrupted();
    return tally;
}
