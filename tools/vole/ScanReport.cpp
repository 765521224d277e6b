#include "ScanReport.h"

#include <cstdio>

#include "Interruption.h"
#include "JsonReport.h"
#include "LineReport.h"
#include "vole.h"

namespace {

// A scan that a signal kept from looking at anything is no news.
bool wasNotBegun(const FileReport& file) {
    return isInterrupted() && file.outcome == Outcome::incomplete && file.counters.bytesRead == 0 &&
           !file.reasons.empty() && file.reasons.front().code == vole_reason_name(VOLE_REASON_CANCELLED);
}

}  // namespace

ScanReport::ScanReport(const ScanOptions& options, Output& output, Progress& progress)
    : _options(options), _output(output), _progress(progress) {}

void ScanReport::begin(const Engine& engine) {
    if (_options.json) {
        write(jsonHeader(vole_version(), engine.signatureCount().value_or(0), engine.id()), Urgency::canWait);
    }
    if (!_options.limits) return;
    for (const std::string& limit : engine.limits()) write(limit, Urgency::canWait);
}

bool ScanReport::add(const FileReport& file) {
    if (wasNotBegun(file)) return true;
    count(file);
    const bool plain = file.outcome == Outcome::clean && file.findings.empty();
    if (!plain && !_options.dumpDir.empty() && !file.findings.empty()) _matches.push_back(file.path);
    if (!plain || !_options.onlyFindings) {
        write(_options.json ? jsonLine(file) : reportLines(file), plain ? Urgency::canWait : Urgency::now);
    }
    if (_options.debug && !file.reasons.empty()) {
        _progress.withoutLine([&] { std::fputs((reasonLines(file) + '\n').c_str(), stderr); });
    }
    return !_output.failed();
}

void ScanReport::end(const Engine& engine, double seconds) {
    if (_options.noSummary) return;
    write(_options.json ? jsonSummary(_tally, seconds, isInterrupted())
                        : summaryLines(_tally, seconds, engine.signatureCount(), !_options.engine.cache.empty()),
          Urgency::canWait);
}

void ScanReport::count(const FileReport& file) {
    ++(file.outcome == Outcome::failed ? _tally.errors : _tally.scanned);
    if (file.outcome == Outcome::found) ++_tally.infected;
    if (file.outcome != Outcome::found && !file.findings.empty()) ++_tally.allowed;
    if (file.outcome == Outcome::incomplete) ++_tally.incomplete;
    if (file.cached) ++_tally.cached;
}

void ScanReport::write(std::string_view lines, Urgency urgency) {
    _progress.withoutLine([&] { _output.writeLine(lines, urgency); });
}
