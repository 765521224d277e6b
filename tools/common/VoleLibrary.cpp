#include "VoleLibrary.h"

#include <cstddef>

#include "Processors.h"

namespace {

// What is told while a set is loaded.
struct Problems {
    const std::string& path;  // Of the set.
    const NoteProblem& note;
    std::string fatal = {};  // The first problem for which loading fails.
};

std::string textOf(const vole_load_problem& problem) {
    std::string text(problem.file);
    if (problem.line != 0) text += ':' + std::to_string(problem.line);
    text += std::string(": ") + problem.reason;
    if (problem.text_size != 0) text += ": " + std::string(problem.text, problem.text_size);
    return text;
}

// The library is C to its callers: nothing may be thrown through it.
int noteProblem(void* context, const vole_load_problem* problem) noexcept {
    Problems& problems = *static_cast<Problems*>(context);
    if (problem->fatal != 0 && problems.path == problem->file) {
        problems.fatal = problem->reason;  // Told with the set's path, and once.
        return 0;
    }
    const std::string text = textOf(*problem);
    if (problem->fatal != 0 && problems.fatal.empty()) problems.fatal = text;
    if (problems.note) problems.note(text);
    return 0;
}

constexpr std::size_t kMostTextBytes = 1024 * 1024;

std::size_t textBytes(const vole_path& path) {
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < path.count; ++i) bytes += sizeof(std::string) + path.components[i].size;
    return bytes;
}

Finding copyOf(const vole_finding& finding) { return plainFinding(finding); }

Reason copyOf(const vole_reason& reason) {
    return {vole_reason_name(reason.code), reason.text, memberOf(reason.member)};
}

bool isAllowed(const vole_finding& finding) { return finding.allowed != 0; }
bool isAllowed(const vole_reason&) { return false; }

// The first of the result's `count` items, as many as fit. Allowed ones take no room from others.
template <class Copy, class Get>
std::vector<Copy> copyItems(const vole_result* result, std::size_t count, Get get) {
    std::vector<Copy> copies;
    std::size_t bytesOf[2] = {};
    for (std::size_t i = 0; i < count; ++i) {
        const auto* const item = get(result, i);
        std::size_t& bytes = bytesOf[isAllowed(*item)];
        if (bytes >= kMostTextBytes) continue;
        bytes += sizeof(Copy) + textBytes(item->member);
        copies.push_back(copyOf(*item));
    }
    return copies;
}

Counters copyOf(const vole_counters& counters) {
    return {counters.bytes_read, counters.bytes_unpacked, counters.members, counters.deepest_level,
            counters.time_us,    counters.findings,       counters.reasons};
}

Outcome outcomeOf(vole_outcome outcome) {
    switch (outcome) {
        case VOLE_OUTCOME_CLEAN:
            return Outcome::clean;
        case VOLE_OUTCOME_FOUND:
            return Outcome::found;
        case VOLE_OUTCOME_INCOMPLETE:
            return Outcome::incomplete;
        case VOLE_OUTCOME_FAILED:
            break;
    }
    return Outcome::failed;
}

// A scanner that was made without an error, for which there would be this text.
ScannerHandle withFlags(ScannerHandle scanner, std::uint32_t flags, vole_error error, const char* text) {
    if (error == VOLE_OK) error = vole_scanner_set_flags(scanner.get(), flags);
    if (error != VOLE_OK) throw LoadError(std::string("cannot make a scanner: ") + text);
    return scanner;
}

}  // namespace

Finding plainFinding(const vole_finding& finding) {
    Finding copy{finding.name, vole_kind_name(finding.kind), vole_form_name(finding.form), finding.allowed != 0,
                 std::nullopt, memberOf(finding.member)};
    if (finding.offset != VOLE_NO_OFFSET) copy.offset = finding.offset;
    return copy;
}

MemberPath memberOf(const vole_path& path) {
    MemberPath names;
    names.reserve(path.count);
    for (std::size_t i = 0; i < path.count; ++i) names.emplace_back(path.components[i].data, path.components[i].size);
    return names;
}

std::uint32_t spareProcessor() { return processors() > 1 ? VOLE_LOAD_THREADS : 0; }

SignaturesHandle loadSignatures(const std::string& path, std::uint32_t flags, const NoteProblem& note) {
    Problems problems{path, note};
    vole_load_options options = VOLE_LOAD_OPTIONS_INIT;
    options.flags = flags;
    options.on_problem = noteProblem;
    options.context = &problems;
    vole_signatures* signatures = nullptr;
    const vole_error error = vole_signatures_load(path.c_str(), &options, &signatures);
    SignaturesHandle handle(signatures);
    if (error != VOLE_OK) {
        const std::string reason = problems.fatal.empty() ? vole_error_text(error) : problems.fatal;
        throw LoadError("cannot load signatures from " + path + ": " + reason);
    }
    if (vole_signatures_count(signatures) == 0) throw LoadError("no signatures in " + path);
    return handle;
}

ScannerHandle makeScanner(vole_signatures* signatures, const vole_limits& limits, std::uint32_t flags) {
    vole_scanner* scanner = nullptr;
    const vole_error error = vole_scanner_new(signatures, &limits, &scanner);
    return withFlags(ScannerHandle(scanner), flags, error, vole_error_text(error));
}

ScannerHandle makeIsolatedScanner(vole_signatures* signatures, const vole_limits& limits, std::uint32_t flags) {
    char why[512] = "";
    vole_isolation isolation = VOLE_ISOLATION_INIT;
    isolation.why = why;
    isolation.why_size = sizeof why;
    vole_scanner* scanner = nullptr;
    const vole_error error = vole_isolated_scanner_new(signatures, &limits, &isolation, &scanner);
    return withFlags(ScannerHandle(scanner), flags, error, why[0] != '\0' ? why : vole_error_text(error));
}

FileReport reportOf(const vole_scanner* scanner, const std::string& path, vole_error error) {
    const vole_result* const result = vole_scanner_result(scanner);
    FileReport report;
    report.path = path;
    if (error != VOLE_OK) {
        report.outcome = Outcome::failed;
        report.error = vole_result_error_text(result);
        if (report.error.empty()) report.error = vole_error_text(error);
        return report;
    }
    report.outcome = outcomeOf(vole_result_outcome(result));
    report.findings = copyItems<Finding>(result, vole_result_finding_count(result), vole_result_finding);
    report.reasons = copyItems<Reason>(result, vole_result_reason_count(result), vole_result_reason);
    report.counters = copyOf(*vole_result_counters(result));
    return report;
}
