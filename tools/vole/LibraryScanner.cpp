#include "LibraryScanner.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "Messages.h"

namespace {

// Of names and texts that are copied of one result. Beyond it, as beyond what the library keeps, the counters tell.
constexpr std::size_t kMostTextBytes = 1024 * 1024;

vole_scanner* makeScanner(vole_signatures* signatures, const vole_limits& limits, std::uint32_t flags) {
    vole_scanner* scanner = nullptr;
    vole_error error = vole_scanner_new(signatures, &limits, &scanner);
    if (error == VOLE_OK && (error = vole_scanner_set_flags(scanner, flags)) != VOLE_OK) vole_scanner_free(scanner);
    if (error != VOLE_OK) throw LoadError(std::string("cannot make a scanner: ") + vole_error_text(error));
    return scanner;
}

// Leaves the number of the error, if one comes, in the int that it is given.
ptrdiff_t readStandardInput(void* errorNumber, void* buffer, std::size_t size) {
    for (;;) {
        if (!waitReadable(STDIN_FILENO)) return 0;  // The scanner is cancelled by now, and says so.
        const ssize_t bytes = ::read(STDIN_FILENO, buffer, size);
        if (bytes >= 0) return bytes;
        if (errno == EINTR || errno == EAGAIN) continue;
        *static_cast<int*>(errorNumber) = errno;
        return bytes;
    }
}

std::size_t textBytes(const vole_path& path) {
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < path.count; ++i) bytes += sizeof(std::string) + path.components[i].size;
    return bytes;
}

MemberPath copyOf(const vole_path& path) {
    MemberPath names;
    names.reserve(path.count);
    for (std::size_t i = 0; i < path.count; ++i) names.emplace_back(path.components[i].data, path.components[i].size);
    return names;
}

Finding copyOf(const vole_finding& finding) {
    Finding copy{finding.name, vole_kind_name(finding.kind), vole_form_name(finding.form), finding.allowed != 0,
                 std::nullopt, copyOf(finding.member)};
    if (finding.offset != VOLE_NO_OFFSET) copy.offset = finding.offset;
    return copy;
}

Reason copyOf(const vole_reason& reason) { return {vole_reason_name(reason.code), reason.text, copyOf(reason.member)}; }

// The first of the result's `count` items, as many as fit.
template <class Copy, class Get>
std::vector<Copy> copyItems(const vole_result* result, std::size_t count, Get get) {
    std::vector<Copy> copies;
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < count && bytes < kMostTextBytes; ++i) {
        const auto* const item = get(result, i);
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

}  // namespace

LibraryScanner::LibraryScanner(vole_signatures* signatures, const vole_limits& limits, std::uint32_t flags)
    : _scanner(makeScanner(signatures, limits, flags)), _cancelling(_scanner.get()) {}

FileReport LibraryScanner::scan(const Target& target) {
    if (target.standardInput) return scanStandardInput(target.path);
    return reportOn(target.path, vole_scan_path(_scanner.get(), target.path.c_str(), nullptr));
}

FileReport LibraryScanner::scanOpen(const std::string& path, int fd) {
    return reportOn(path, vole_scan_fd(_scanner.get(), fd, nullptr));
}

FileReport LibraryScanner::scanStandardInput(const std::string& name) {
    struct stat status;
    if (::fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode)) return scanOpen(name, STDIN_FILENO);
    int readError = 0;
    FileReport report = reportOn(name, vole_scan_stream(_scanner.get(), readStandardInput, &readError, nullptr));
    if (readError != 0) report.error = "cannot read it: " + systemText(readError);
    return report;
}

FileReport LibraryScanner::reportOn(const std::string& path, vole_error error) const {
    const vole_result* const result = vole_scanner_result(_scanner.get());
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
