#include "ScanCommand.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <vector>

#include "Escape.h"
#include "FileWalker.h"
#include "Interruption.h"
#include "Messages.h"
#include "Output.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Tally {
    unsigned long long scanned = 0;
    unsigned long long infected = 0;
    unsigned long long allowed = 0;
    unsigned long long errors = 0;
};

class Scan {
public:
    Scan(const EngineSession& engine, bool onlyFindings, Output& output)
        : _engine(engine), _onlyFindings(onlyFindings), _output(output) {}

    // Ends early when the report cannot be written any more, or a signal asks for it.
    void scanTree(const std::string& root) {
        FileWalker walker(root);
        while (!_output.failed() && !isInterrupted() && walker.next()) {
            if (walker.error().empty()) {
                scanOne(walker.path());
            } else {
                ++_tally.errors;
                report(walker.path(), walker.error(), "");
            }
        }
    }

    // The files with a match, whatever its name.
    const std::vector<std::string>& matches() const { return _matches; }

    const Tally& tally() const { return _tally; }

private:
    void scanOne(const std::string& path) {
        const ScanResult result = _engine.scan(path);
        ++(result.verdict == Verdict::failed ? _tally.errors : _tally.scanned);
        switch (result.verdict) {
            case Verdict::clean:
                if (!_onlyFindings) report(path, "", "OK", Urgency::canWait);
                break;
            case Verdict::found:
                ++_tally.infected;
                reportMatch(path, result, " FOUND");
                break;
            case Verdict::allowed:
                ++_tally.allowed;
                reportMatch(path, result, " ALLOWED");
                break;
            case Verdict::failed:
                report(path, result.text, "");
        }
    }

    void reportMatch(const std::string& path, const ScanResult& match, std::string_view word) {
        report(path, match.entry.empty() ? match.text : match.text + " in " + match.entry, word);
        _matches.push_back(path);
    }

    void report(std::string_view path, std::string_view text, std::string_view word, Urgency urgency = Urgency::now) {
        _line.clear();
        appendEscaped(_line, path);
        _line += ": ";
        appendEscaped(_line, text);
        _line += word;
        _output.writeLine(_line, urgency);
    }

    const EngineSession& _engine;
    bool _onlyFindings;
    Output& _output;
    Tally _tally;
    std::vector<std::string> _matches;
    std::string _line;
};

void writeSummary(Output& output, int signatureCount, const Tally& tally, Clock::duration elapsed) {
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.2f s", std::chrono::duration<double>(elapsed).count());
    output.writeLine("");
    if (signatureCount >= 0) output.writeLine("Signatures: " + std::to_string(signatureCount));
    output.writeLine("Scanned:    " + std::to_string(tally.scanned));
    output.writeLine("Infected:   " + std::to_string(tally.infected));
    output.writeLine("Allowed:    " + std::to_string(tally.allowed));
    output.writeLine("Errors:     " + std::to_string(tally.errors));
    output.writeLine(std::string("Elapsed:    ") + seconds);
}

ExitCode exitCodeOf(const Tally& tally, bool outputFailed) {
    if (tally.infected != 0) return kExitFound;
    return tally.errors != 0 || outputFailed ? kExitErrors : kExitClean;
}

void dumpMatches(EngineSession& engine, const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
        if (isInterrupted()) return;
        engine.dumpMembers(path);
    }
}

ExitCode scanPaths(const ScanOptions& options, const EngineOptions& engineOptions) {
    const Clock::time_point start = Clock::now();
    EngineSession engine(engineOptions);
    noteSignals();  // Not before: while signatures are loaded there is nothing to be lost.
    Output output(STDOUT_FILENO);
    if (options.limits) {
        for (const std::string& limit : engine.limits()) output.writeLine(limit);
    }
    Scan scan(engine, options.onlyFindings, output);
    for (const std::string& path : options.paths) scan.scanTree(path);
    if (!engineOptions.dumpDir.empty()) dumpMatches(engine, scan.matches());
    if (!options.noSummary && !options.paths.empty())
        writeSummary(output, engine.signatureCount(), scan.tally(), Clock::now() - start);
    if (isInterrupted()) complain(std::string("ended by ") + interruptingSignal());
    if (!output.flush()) complain("cannot write the report: " + output.errorText());
    return exitCodeOf(scan.tally(), output.failed());
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
    EngineOptions engineOptions = options.engine;
    if (engineOptions.patternDir.empty()) engineOptions.patternDir = defaultPatternDir();
    try {
        return scanPaths(options, engineOptions);
    } catch (const LoadError& error) {
        complain(error.what());
        return kExitErrors;
    }
}
