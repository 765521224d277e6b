#include "EngineSession.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <limits>
#include <string_view>
#include <utility>

#include "Messages.h"
#include "VoleLibrary.h"
#include "voleeng.h"

namespace {

constexpr int kAllDiagnostics = 3;

// What holds where no usable options file says otherwise.
constexpr const char* kDefaultLimits[] = {"MaxUnarEntries      = 100", "MaxUnarRatio        = 250",
                                          "MaxUnarLevelEntries = 50", "MaxUnarDepth        = 50",
                                          "MaxUnarSize         = 1048576 bytes"};

// init() is lenient: it succeeds when only the lists loaded, and the plug-in's text replaces every other one in its
// message. Whether the signatures loaded, why not, and how many there are is only told by its diagnostic lines.
struct LoadReport {
    std::optional<std::uint64_t> signatureCount;
    std::vector<std::string> limits;
    bool signaturesFailed = false;
    std::string reason;
    bool reasonFollows = false;
    bool echo = false;
};

// The engine's callback carries no context. Only set while init() runs, which calls back on its own thread.
LoadReport* loadReport = nullptr;

void printDiagnostic(const char* text) {
    std::string_view message(text);
    while (!message.empty() && message.back() == '\n') message.remove_suffix(1);
    printMessage("", message);
}

// What follows the mark in the line; nothing when the mark is not there.
std::optional<std::string_view> textBehind(std::string_view line, std::string_view mark) {
    const std::size_t position = line.find(mark);
    if (position == std::string_view::npos) return std::nullopt;
    return line.substr(position + mark.size());
}

void readSignatureCount(std::string_view line) {
    if (const auto count = textBehind(line, "vole-engine, pattern [")) {
        std::uint64_t number = 0;
        const auto end = count->data() + count->size();
        if (std::from_chars(count->data(), end, number).ec == std::errc()) loadReport->signatureCount = number;
    }
}

// "[unit:line] MaxUnarDepth        = 50."
void readLimit(std::string_view line) {
    const auto limit = textBehind(line, "] MaxUnar");
    if (!limit || limit->find(" = ") == std::string_view::npos) return;
    loadReport->limits.push_back("MaxUnar" + std::string(limit->substr(0, limit->find_last_not_of(".\n") + 1)));
}

void collectLoadLine(const char* text) {
    const std::string_view line(text);
    if (loadReport->echo) printDiagnostic(text);
    if (loadReport->reasonFollows) {
        loadReport->reason = line;
        loadReport->reasonFollows = false;
    } else if (line.starts_with("rc1 is ")) {
        loadReport->signaturesFailed = loadReport->reasonFollows = true;
    }
    readSignatureCount(line);
    readLimit(line);
}

void setDiagnostics(int level, void (*print)(const char*)) {
    VoleDebugger settings{level, print, {}};
    setDebugger(&settings);
}

std::string textOrCode(const std::string& text, int code) {
    return text.empty() ? "error " + std::to_string(code) : text;
}

// The engine has one text for all that keeps it from opening a file. Empty when nothing does any more.
std::string openProblem(const std::string& path) {
    constexpr off_t kLargestFile = std::numeric_limits<std::int32_t>::max();
    struct stat status;
    if (::stat(path.c_str(), &status) != 0) return "cannot open the file: " + systemText(errno);
    if (!S_ISREG(status.st_mode)) return "not a regular file";
    if (status.st_size > kLargestFile) return "too large: files of 2 GiB and more are not scanned";
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return "cannot open the file: " + systemText(errno);
    ::close(fd);
    return {};
}

std::string scanProblem(const std::string& path, const std::string& message, int code) {
    if (code == VOLE_CANNOT_READ) return "cannot read the file";
    const std::string problem = code == VOLE_CANNOT_OPEN ? openProblem(path) : std::string();
    return problem.empty() ? textOrCode(message, code) : problem;
}

// The engine makes the folder when it dumps, but leaves out without a word what it cannot write.
void makeDumpDir(const std::string& dir) {
    std::error_code error;
    std::filesystem::create_directories(dir, error);
    if (!error && ::access(dir.c_str(), R_OK | W_OK | X_OK) != 0) error = {errno, std::generic_category()};
    if (error) throw LoadError("cannot dump to " + dir + ": " + error.message());
}

class HostScanner : public FileScanner {
public:
    FileReport scan(const Target& target) override {
        FileReport report;
        report.path = target.path;
        if (target.standardInput) {
            report.outcome = Outcome::failed;
            report.error = "hosts cannot scan standard input";
        } else {
            ask(report);
        }
        return report;
    }

private:
    // The engine tells neither what kind of signature it is nor where it matched.
    static void ask(FileReport& report) {
        std::string name;
        std::string message;
        const int result = scanFile(report.path.c_str(), name, message);
        if (result == VOLE_CLEAN) return;
        if (result == VOLE_FOUND) {
            const bool allowed = IsFalseAlarm(name.c_str()) == 1;
            report.outcome = allowed ? Outcome::clean : Outcome::found;
            report.findings.push_back({std::move(name), {}, {}, allowed, {}, {}});
            report.counters.findings = 1;
        } else {
            report.outcome = Outcome::failed;
            report.error = scanProblem(report.path, message, result);
        }
    }
};

}  // namespace

EngineSession::EngineSession(const EngineOptions& options) {
    if (!options.dumpDir.empty()) makeDumpDir(options.dumpDir);
    LoadReport report;
    report.echo = options.diagnostics;
    loadReport = &report;
    setDiagnostics(kAllDiagnostics, collectLoadLine);
    std::string message;
    const int result = init(options.patternDir.c_str(), message);
    setDiagnostics(options.diagnostics ? kAllDiagnostics : 0, options.diagnostics ? printDiagnostic : nullptr);
    loadReport = nullptr;

    if (options.diagnostics && !message.empty()) printDiagnostic(message.c_str());
    std::string failure;
    if (report.signaturesFailed || result != VOLE_CLEAN) {
        failure = textOrCode(report.reason.empty() ? message : report.reason, result);
    } else if (report.signatureCount == std::uint64_t{0}) {
        failure = "no signatures in " + options.patternDir;
    }
    if (!failure.empty()) {
        freeResource();
        throw LoadError(failure);
    }
    _signatureCount = report.signatureCount;
    _limits = std::move(report.limits);
    if (_limits.empty()) _limits.assign(std::begin(kDefaultLimits), std::end(kDefaultLimits));
    setDumpPath(options.dumpDir.c_str());
}

EngineSession::~EngineSession() {
    freeResource();
    setDiagnostics(0, nullptr);
    setDumpPath(nullptr);
}

std::unique_ptr<FileScanner> EngineSession::newScanner() const { return std::make_unique<HostScanner>(); }

// A scan ends at its first match, and nothing of the content that matches is dumped. Without signatures nothing
// matches.
void EngineSession::dumpMembers(const std::string& path) {
    freeResource();
    std::string name;
    std::string message;
    scanFile(path.c_str(), name, message);
}
