#include "EngineSession.h"

#include <charconv>
#include <cstdio>
#include <string_view>

#include "Escape.h"
#include "voleeng.h"

namespace {

constexpr int kAllDiagnostics = 3;

// init() is lenient: it succeeds when only the lists loaded, and the plug-in's text replaces every other one in its
// message. Whether the signatures loaded, why not, and how many there are is only told by its diagnostic lines.
struct LoadReport {
    int signatureCount = -1;
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
    std::string line;
    appendEscaped(line, message);
    line += '\n';
    std::fputs(line.c_str(), stderr);
}

void readSignatureCount(std::string_view line) {
    constexpr std::string_view kMark = "vole-engine, pattern [";
    const std::size_t position = line.find(kMark);
    if (position == std::string_view::npos) return;
    line.remove_prefix(position + kMark.size());
    std::from_chars(line.data(), line.data() + line.size(), loadReport->signatureCount);
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
}

void setDiagnostics(int level, void (*print)(const char*)) {
    VoleDebugger settings{level, print, {}};
    setDebugger(&settings);
}

std::string textOrCode(const std::string& text, int code) {
    return text.empty() ? "error " + std::to_string(code) : text;
}

}  // namespace

EngineSession::EngineSession(const EngineOptions& options) {
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
    } else if (report.signatureCount == 0) {
        failure = "no signatures in " + options.patternDir;
    }
    if (!failure.empty()) {
        freeResource();
        throw LoadError(failure);
    }
    _signatureCount = report.signatureCount;
    setDumpPath(options.dumpDir.c_str());
}

EngineSession::~EngineSession() {
    freeResource();
    setDiagnostics(0, nullptr);
    setDumpPath(nullptr);
}

ScanResult EngineSession::scan(const std::string& path) const {
    std::string name;
    std::string message;
    const int result = scanFile(path.c_str(), name, message);
    if (result == VOLE_CLEAN) return {Verdict::clean, {}};
    if (result == VOLE_FOUND) return {Verdict::found, std::move(name)};
    return {Verdict::failed, textOrCode(message, result)};
}
