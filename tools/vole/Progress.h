// Progress: one line at the bottom of a terminal that says how far the scan has come. It appears a second after
// start(), is redrawn five times a second at most, and is gone when stop() returns.
//
//   Use:     known() while files are being found, started() and done() for each of them, withoutLine() around every
//            write that goes to a terminal, to standard error as well as to standard output. A line is then never in
//            the middle of another.
//   Owns:    a thread with all signals blocked, unless nothing is drawn; then every function returns at once.
//   Borrows: the descriptor. Failed writes are ignored.
//   Threads: all functions from any thread, but start(), stop() and the destructor from one. What withoutLine() runs
//            must not call back.
#ifndef VOLE_TOOL_PROGRESS_H
#define VOLE_TOOL_PROGRESS_H

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

class Progress {
public:
    // Draws when that is wanted, `fd` is a terminal and that terminal can erase a line.
    explicit Progress(bool wanted, int fd = STDERR_FILENO);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress() { stop(); }

    // At most once.
    void start();

    // Whether what the other functions are told is ever shown.
    bool isDrawing() const { return _drawing; }

    // That many more files and bytes are waiting.
    void known(std::uint64_t files, std::uint64_t bytes);

    // The scan of a file begins. With several at once the latest is shown.
    void started(std::string_view path);

    // The scan of a file ended. `bytes` are those that known() told, so that all adds up.
    void done(std::uint64_t bytes, std::uint64_t findings);

    // Runs `write` while no line is on the terminal, and none appears.
    template <class Write>
    void withoutLine(Write write) {
        if (!_drawing) return write();
        const std::lock_guard lock(_mutex);
        erase();
        write();
    }

    void stop();

private:
    using Clock = std::chrono::steady_clock;

    void run();
    void draw();
    void erase();
    std::string numbers() const;
    bool isInBackground() const;

    const bool _drawing;
    const int _fd;
    Clock::time_point _start;
    std::atomic<std::uint64_t> _knownFiles{0}, _knownBytes{0}, _doneFiles{0}, _doneBytes{0}, _findings{0};
    std::mutex _pathMutex;  // guards _path; held for a copy only
    std::string _path;
    std::mutex _mutex;  // guards the terminal and what follows
    std::condition_variable _wake;
    bool _visible = false;
    bool _stopping = false;
    std::thread _thread;
};

#endif  // VOLE_TOOL_PROGRESS_H
