#include "ScanCommand.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "Census.h"
#include "EngineSession.h"
#include "Interruption.h"
#include "Messages.h"
#include "NameList.h"
#include "Output.h"
#include "Processors.h"
#include "Progress.h"
#include "ReadAhead.h"
#include "ScanReport.h"
#include "TargetSource.h"
#include "VoleLibrary.h"
#include "Workers.h"

namespace {

using Clock = std::chrono::steady_clock;

// A scanner that the progress line hears of.
class ObservedScanner : public FileScanner {
public:
    ObservedScanner(std::unique_ptr<FileScanner> scanner, Progress& progress)
        : _scanner(std::move(scanner)), _progress(progress) {}

    FileReport scan(const Target& target) override {
        _progress.started(target.path);
        FileReport report = _scanner->scan(target);
        done(report);
        return report;
    }

    void scanAll(std::span<const Target> targets, const Told& told) override {
        std::size_t begun = 0;
        _progress.started(targets[begun].path);
        _scanner->scanAll(targets, [&](FileReport report) {
            done(report);
            const bool more = told(std::move(report));
            if (more && ++begun < targets.size()) _progress.started(targets[begun].path);
            return more;
        });
    }

private:
    void done(const FileReport& report) {
        _progress.done(report.counters.bytesRead + report.cachedSize, report.counters.findings);
    }

    std::unique_ptr<FileScanner> _scanner;
    Progress& _progress;
};

// The older interface tells of one scan at a time, and archives of one name share a folder.
unsigned jobsFor(const ScanOptions& options) {
    const bool oneByOne = !options.dumpDir.empty() || (options.hostView && options.debug);
    if (oneByOne) return 1;
    return options.jobs != 0 ? options.jobs : processors();
}

std::vector<std::unique_ptr<FileScanner>> makeScanners(const Engine& engine, unsigned count, Progress& progress) {
    std::vector<std::unique_ptr<FileScanner>> scanners;
    for (unsigned i = 0; i < count; ++i) {
        auto scanner = engine.newScanner();
        if (progress.isDrawing()) scanner = std::make_unique<ObservedScanner>(std::move(scanner), progress);
        scanners.push_back(std::move(scanner));
    }
    return scanners;
}

std::optional<NameList> openList(const ScanOptions& options) {
    if (!options.filesFrom) return std::nullopt;
    const bool twice = *options.filesFrom == "-" && std::count(options.paths.begin(), options.paths.end(), "-") != 0;
    if (twice) throw ListError("standard input cannot be both scanned and the list of files");
    return std::optional<NameList>(std::in_place, *options.filesFrom, options.nullSeparated ? '\0' : '\n');
}

void scanAll(const ScanOptions& options, const Engine& engine, NameList* list, ScanReport& report, Progress& progress) {
    progress.start();
    TargetSource source(options.paths, list, options.rules);
    std::optional<Census> census;
    if (progress.isDrawing() && !list) census.emplace(options.paths, options.rules, progress);
    ReadAhead readAhead;
    const bool mayPassOver = !options.engine.cache.empty();  // Files that did not change are not read.
    const auto fetch = [&](std::vector<Target>& targets, std::size_t most) {
        const bool more = source.next(targets, most);
        if (!mayPassOver) readAhead.next(targets);
        if (list) progress.known(targets.size(), 0);
        return more;
    };
    Workers workers(fetch, [&](const FileReport& file) { return report.add(file); });
    workers.run(makeScanners(engine, jobsFor(options), progress));
}

void dumpMatches(EngineSession& engine, const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
        if (isInterrupted()) return;
        engine.dumpMembers(path);
    }
}

ExitCode exitCodeOf(const Tally& tally, bool incompleteIsOk, bool reportIsWhole) {
    if (tally.infected != 0) return kExitFound;
    const bool complete = tally.errors == 0 && (tally.incomplete == 0 || incompleteIsOk);
    return complete && reportIsWhole ? kExitClean : kExitErrors;
}

ExitCode scanWith(Engine& engine, EngineSession* session, const ScanOptions& options, Progress& progress,
                  Clock::time_point start) {
    std::optional<NameList> list = openList(options);
    noteSignals();  // Not before: while signatures are loaded there is nothing to be lost.
    std::signal(SIGPIPE, SIG_IGN);
    Output output(STDOUT_FILENO);
    ScanReport report(options, output, progress);
    bool reachedEnd = false;
    try {
        report.begin(engine);
        if (!options.paths.empty() || list) {
            scanAll(options, engine, list ? &*list : nullptr, report, progress);
            progress.stop();
            if (session && !options.dumpDir.empty()) dumpMatches(*session, report.matches());
            report.end(engine, std::chrono::duration<double>(Clock::now() - start).count());
        }
        reachedEnd = true;
    } catch (const std::bad_alloc&) {
        // What was found is still told, and the report ends without a summary.
    }
    progress.stop();
    if (!reachedEnd) complain(kMemoryRanOut);
    if (isInterrupted()) complain(std::string("ended by ") + interruptingSignal());
    if (!output.flush()) complain("cannot write the report: " + output.errorText());
    return exitCodeOf(report.tally(), options.incompleteIsOk, reachedEnd && !output.failed());
}

ExitCode scanAsAsked(const ScanOptions& options) {
    const Clock::time_point start = Clock::now();
    std::string patternDir = options.engine.patternDir;
    if (patternDir.empty()) patternDir = defaultPatternDir();
    if (options.hostView) {
        // The engine's diagnostics would get into the line.
        Progress progress(!options.noProgress && !options.debug);
        EngineSession session({std::move(patternDir), options.dumpDir, options.debug});
        return scanWith(session, &session, options, progress, start);
    }
    Progress progress(!options.noProgress);
    LibraryOptions library = options.engine;
    library.patternDir = std::move(patternDir);
    library.listProblems = options.debug;
    library.warn = [&progress](std::string_view text) { progress.withoutLine([text] { complain(text); }); };
    LibraryEngine engine(library);
    return scanWith(engine, nullptr, options, progress, start);
}

}  // namespace

std::string defaultPatternDir() {
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path programDir = fs::read_symlink("/proc/self/exe", error).parent_path();
    const fs::path beside = programDir / "patterns" / "starter";
    if (fs::is_directory(beside, error)) return beside.string();
    return (programDir / VOLE_DATA_FROM_PROGRAM / "patterns" / "starter").lexically_normal().string();
}

ExitCode runScan(const ScanOptions& options) {
    try {
        return scanAsAsked(options);
    } catch (const LoadError& error) {
        complain(error.what());
    } catch (const ListError& error) {
        complain(error.what());
    } catch (const std::bad_alloc&) {
        complain(kMemoryRanOut);
    }
    return kExitErrors;
}
