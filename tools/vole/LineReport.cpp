#include "LineReport.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "Escape.h"

namespace {

// The names joined by slashes; the ones that a name begins with stand for nothing.
void appendMember(std::string& line, const MemberPath& member) {
    for (std::size_t i = 0; i < member.size(); ++i) {
        std::string_view name = member[i];
        name.remove_prefix(std::min(name.find_first_not_of('/'), name.size()));
        if (i != 0) line += '/';
        appendEscaped(line, name.empty() ? "(no name)" : name);
    }
}

void appendReason(std::string& line, const Reason& reason) {
    appendMember(line, reason.member);
    if (!reason.member.empty()) line += ": ";
    appendEscaped(line, reason.text);
}

// Lines that begin with the file's path.
class Lines {
public:
    explicit Lines(std::string_view path) {
        appendEscaped(_prefix, path);
        _prefix += ": ";
    }

    // Begins a line, to which the caller adds the rest.
    std::string& next() {
        if (!_text.empty()) _text += '\n';
        return _text += _prefix;
    }

    std::string& text() { return _text; }

private:
    std::string _prefix;
    std::string _text;
};

void addFinding(Lines& lines, const Finding& finding) {
    std::string& line = lines.next();
    appendEscaped(line, finding.name);
    if (!finding.member.empty()) {
        line += " in ";
        appendMember(line, finding.member);
    }
    line += finding.allowed ? " ALLOWED" : " FOUND";
}

void addIncomplete(Lines& lines, const FileReport& report) {
    std::string& line = lines.next() += "INCOMPLETE (";
    if (!report.reasons.empty()) appendReason(line, report.reasons.front());
    if (report.counters.reasons > 1) line += "; and " + std::to_string(report.counters.reasons - 1) + " more";
    line += ')';
}

void addSum(std::string& text, const char* name, std::uint64_t count) {
    constexpr std::size_t kColumn = 12;
    std::string line(name);
    line.resize(kColumn, ' ');
    text += line + std::to_string(count) + '\n';
}

}  // namespace

std::string reportLines(const FileReport& report) {
    Lines lines(report.path);
    for (const Finding& finding : report.findings) addFinding(lines, finding);
    if (report.outcome == Outcome::incomplete) addIncomplete(lines, report);
    if (report.outcome == Outcome::failed) appendEscaped(lines.next() += "ERROR ", report.error);
    if (lines.text().empty()) lines.next() += "OK";
    return std::move(lines.text());
}

std::string reasonLines(const FileReport& report) {
    Lines lines(report.path);
    for (const Reason& reason : report.reasons) {
        std::string& line = lines.next();
        appendReason(line, reason);
        line += " [" + reason.code + ']';
    }
    return std::move(lines.text());
}

std::string summaryLines(const Tally& tally, double seconds, std::optional<std::uint64_t> signatures, bool cached) {
    std::string text = "\n";
    if (signatures) addSum(text, "Signatures:", *signatures);
    addSum(text, "Scanned:", tally.scanned);
    if (cached) addSum(text, "Cached:", tally.cached);
    addSum(text, "Infected:", tally.infected);
    addSum(text, "Allowed:", tally.allowed);
    addSum(text, "Incomplete:", tally.incomplete);
    addSum(text, "Errors:", tally.errors);
    char elapsed[48];
    std::snprintf(elapsed, sizeof elapsed, "Elapsed:    %.2f s", seconds);
    return text + elapsed;
}
