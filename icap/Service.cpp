#include "Service.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <exception>
#include <system_error>
#include <utility>

#include "JsonReport.h"
#include "Server.h"

namespace icap {
namespace {

using Clock = std::chrono::steady_clock;

// Runs the call with all signals blocked, so that a thread which it starts never gets one that is meant for the server.
template <class Call>
void withoutSignals(Call call) {
    sigset_t all, before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    call();
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

std::string utcTime() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    ::gmtime_r(&now, &parts);
    std::array<char, 32> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

// Opened for each line: findings are rare, and a file that was moved away is let go of.
void appendLine(const std::string& path, const std::string& line) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);
    // One call, so that lines of several processes do not mix.
    const bool isWritten = fd >= 0 && ::write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size());
    const int error = errno;
    if (fd >= 0) ::close(fd);
    if (!isWritten) throw std::system_error(error, std::generic_category(), "cannot write " + path);
}

}  // namespace

Service::Service(std::function<void(const std::string& tag)> onSet)
    : _onSet(std::move(onSet)), _store([](const std::string& text) { log(LogLevel::error, text); }) {}

void Service::apply(const SettingOption& option, std::span<const std::string_view> words) {
    try {
        option.apply(_settings, words);
    } catch (const SettingError& error) {
        _settingErrors.push_back(std::string("vole.") + option.name + ": " + error.what());
    }
}

void Service::prepare() {
    if (_settings.tempDir.empty()) _settings.tempDir = serverTempDir();
    try {
        _pages.emplace(_settings.templateDir);
    } catch (const SettingError& error) {
        _settingErrors.push_back(std::string("vole.TemplateDir: ") + error.what());
    }
    if (_settings.patternDir.empty()) _settingErrors.emplace_back("vole.PatternDir is not set");
    for (const std::string& error : _settingErrors) log(LogLevel::error, error + "; the service does not serve");
    _isUsable = _settingErrors.empty();
    if (_isUsable) load();
}

bool Service::load() {
    unsigned long long problems = 0;
    std::string firstProblem;
    const auto note = [&](const std::string& problem) {
        if (problems++ == 0) firstProblem = problem;
        log(LogLevel::information, problem);
    };
    try {
        const auto set = _store.load(_settings, note);
        const std::uint64_t records = vole_signatures_count(set->signatures.get());
        _metrics.showSet(records, vole_signatures_memory(set->signatures.get()));
        _onSet(set->tag);
        log(LogLevel::error, "serving " + std::to_string(records) + " signatures of " + _settings.patternDir +
                                 ", set " + vole_signatures_id(set->signatures.get()) + ", " +
                                 std::to_string(problems) + " records left out");
        return true;
    } catch (const std::exception& failure) {
        const char* const consequence =
            _store.current() ? "; the set in use stays in use" : "; no set is loaded, and the service does not serve";
        const std::string why = firstProblem.empty() ? "" : " (first problem: " + firstProblem + ")";
        log(LogLevel::error, failure.what() + why + consequence);
        return false;
    }
}

void Service::reloadIfDue() {
    if (_isReloadDue.exchange(false) && _isUsable) _metrics.countReload(load());
}

void Service::start() {
    if (_isUsable && !_store.current()) load();
    withoutSignals(
        [&] { _caretaker = std::jthread([this](const std::stop_token& stopping) { lookAfter(stopping); }); });
}

void Service::stop() {
    _caretaker = {};
    writeMetrics();
}

void Service::lookAfter(const std::stop_token& stopping) {
    constexpr std::chrono::milliseconds kTick{250};
    constexpr std::chrono::seconds kMetricsInterval{10};
    auto nextLook = Clock::now() + _settings.watchInterval;
    auto nextMetrics = Clock::now();
    std::unique_lock lock(_caretakerMutex);
    while (!_caretakerWakesUp.wait_for(lock, stopping, kTick, [&] { return stopping.stop_requested(); })) {
        const auto now = Clock::now();
        _clients.look();
        if (_isUsable && _settings.watchInterval.count() != 0 && now >= nextLook) {
            if (_store.hasSettledChange(_settings)) reload();
            nextLook = Clock::now() + _settings.watchInterval;
        }
        reloadIfDue();
        if (now >= nextMetrics) {
            writeMetrics();
            nextMetrics = now + kMetricsInterval;
        }
    }
}

void Service::record(const Message& message, const std::string& client, const FileReport& report,
                     const Verdict& verdict) {
    _metrics.countRequest(verdict, report);
    if (verdict.word == "failed") log(LogLevel::error, "not scanned: " + message.url + ": " + verdict.threat);
    if (_settings.findingsLog.empty() || report.findings.empty()) return;
    try {
        logFindings(message, client, report);
    } catch (const std::exception& failure) {
        log(LogLevel::error, failure.what());
    }
}

void Service::logFindings(const Message& message, const std::string& client, const FileReport& report) {
    const std::vector<std::pair<std::string, std::string>> context = {
        {"time", utcTime()}, {"client", client}, {"method", message.method}, {"url", message.url}};
    std::string lines;
    for (const Finding& finding : report.findings) lines += jsonFinding(finding, context) + '\n';
    appendLine(_settings.findingsLog, lines);
}

void Service::writeMetrics() {
    if (_settings.metricsFile.empty()) return;
    try {
        _metrics.write(_settings.metricsFile);
    } catch (const std::exception& failure) {
        log(LogLevel::error, failure.what());
    }
}

}  // namespace icap
