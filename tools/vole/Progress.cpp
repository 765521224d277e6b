#include "Progress.h"

#include <pthread.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include "Escape.h"
#include "Utf8.h"

namespace {

using namespace std::chrono_literals;

constexpr auto kDelay = 1s;
constexpr auto kInterval = 200ms;
constexpr std::string_view kErase = "\r\x1b[K";
constexpr std::string_view kCut = "...";

bool canErase(int fd) {
    const char* const terminal = std::getenv("TERM");
    return ::isatty(fd) == 1 && terminal != nullptr && std::string_view(terminal) != "dumb";
}

void write(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(fd, text.data(), text.size());
        if (written <= 0) return;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

std::size_t terminalColumns(int fd) {
    winsize size{};
    return ::ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : 80;
}

// At least as many columns as any terminal takes, so that the line never wraps.
std::size_t columnsOf(char32_t character) { return character < 0x300 ? 1 : 2; }

// The end of a text, which says most of a path, in at most that many columns.
std::string lastColumns(std::string_view text, std::size_t columns) {
    std::size_t width = 0;
    for (std::string_view rest = text; !rest.empty();) {
        const Utf8Char next = firstUtf8Char(rest);
        width += columnsOf(next.value);
        rest.remove_prefix(std::max<std::size_t>(next.length, 1));
    }
    if (width <= columns) return std::string(text);
    if (columns < kCut.size()) return "";
    while (width > columns - kCut.size()) {
        const Utf8Char next = firstUtf8Char(text);
        width -= columnsOf(next.value);
        text.remove_prefix(std::max<std::size_t>(next.length, 1));
    }
    return std::string(kCut) + std::string(text);
}

std::string bytesText(double bytes);

std::string bytesText(std::uint64_t bytes) { return bytesText(static_cast<double>(bytes)); }

std::string bytesText(double bytes) {
    constexpr const char* kUnits[] = {"B", "KB", "MB", "GB", "TB", "PB", "EB"};
    std::size_t unit = 0;
    for (; bytes >= 999.5 && unit + 1 < std::size(kUnits); ++unit) bytes /= 1000;
    char text[32];
    std::snprintf(text, sizeof text, unit == 0 || bytes >= 99.95 ? "%.0f %s" : "%.1f %s", bytes, kUnits[unit]);
    return text;
}

}  // namespace

Progress::Progress(bool wanted, int fd) : _drawing(wanted && canErase(fd)), _fd(fd) {}

void Progress::start() {
    if (!_drawing) return;
    _start = Clock::now();
    // Whoever interrupts the program means the threads that do its work.
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        _thread = std::thread([this] { run(); });
    } catch (const std::system_error&) {
        // No thread to be had: no line.
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void Progress::known(std::uint64_t files, std::uint64_t bytes) {
    _knownFiles.fetch_add(files, std::memory_order_relaxed);
    _knownBytes.fetch_add(bytes, std::memory_order_relaxed);
}

void Progress::started(std::string_view path) {
    if (!_drawing) return;
    const std::lock_guard lock(_pathMutex);
    _path = path;
}

void Progress::done(std::uint64_t bytes, std::uint64_t findings) {
    _doneFiles.fetch_add(1, std::memory_order_relaxed);
    _doneBytes.fetch_add(bytes, std::memory_order_relaxed);
    _findings.fetch_add(findings, std::memory_order_relaxed);
}

void Progress::stop() {
    if (!_thread.joinable()) return;
    {
        const std::lock_guard lock(_mutex);
        _stopping = true;
        erase();
    }
    _wake.notify_one();
    _thread.join();
}

void Progress::run() {
    std::unique_lock lock(_mutex);
    const auto stopping = [this] { return _stopping; };
    if (_wake.wait_for(lock, kDelay, stopping)) return;
    do draw();
    while (!_wake.wait_for(lock, kInterval, stopping));
}

void Progress::draw() {
    if (isInBackground()) {
        _visible = false;
        return;
    }
    std::string path;
    {
        const std::lock_guard lock(_pathMutex);
        path = _path;
    }
    // The last column stays free: some terminals go on to the next line as soon as it is filled.
    const std::size_t columns = terminalColumns(_fd) - 1;
    std::string line = numbers().substr(0, columns);
    std::string escaped;
    appendEscaped(escaped, path);
    line += lastColumns(escaped, columns - line.size());
    _visible = true;
    write(_fd, std::string(kErase) + line);
}

void Progress::erase() {
    if (!_visible) return;
    _visible = false;
    if (!isInBackground()) write(_fd, kErase);
}

std::string Progress::numbers() const {
    const auto load = [](const auto& number) { return number.load(std::memory_order_relaxed); };
    const std::uint64_t files = load(_doneFiles), bytes = load(_doneBytes), findings = load(_findings);
    const std::uint64_t allFiles = load(_knownFiles), allBytes = load(_knownBytes);
    const double seconds = std::chrono::duration<double>(Clock::now() - _start).count();
    std::string text = std::to_string(files);
    if (allFiles > files) text += "/" + std::to_string(allFiles);
    text += " files, " + bytesText(bytes);
    if (allBytes > bytes) text += "/" + bytesText(allBytes);
    text += ", " + bytesText(static_cast<double>(bytes) / seconds) + "/s, " + std::to_string(findings);
    return text + (findings == 1 ? " finding  " : " findings  ");
}

// The terminal then belongs to somebody else, who has written to it, too.
bool Progress::isInBackground() const {
    const pid_t foreground = ::tcgetpgrp(_fd);
    return foreground != -1 && foreground != ::getpgrp();
}
