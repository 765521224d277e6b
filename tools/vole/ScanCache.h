// ScanCache: remembers from run to run which files were clean, so that they need not be read again. A regular file is
// known when its device, inode, size and times of change are those of an earlier scan that found it clean with the
// same signatures and limits. What changes a file without changing its ctime (the clock set back to the nanosecond,
// stores through a mapping that was written to before the scan, a network file system that invents its times) goes
// unnoticed.
//
//   Use:     before a file is opened, or behind the open: isKnownClean(its stat). Else fstat, scan, fstat, and when the
//            outcome is clean WITHOUT any finding (allowed ones would be missing from the next report):
//            rememberClean(). At the end finish(), whether or not the run was interrupted.
//   Key:     `limits` stands for all that an outcome depends on besides file and signatures: the limits in force and
//            the engine's version, in any spelling that is always the same.
//   Owns:    the database at `path` (CleanFiles.h), which is made when it is missing. Runs may share it at the same
//            time; each knows what was there when it began. What is no cache, or what others can write to, be it
//            by its folder, is neither used nor changed.
//   Errors:  none to the caller. A damaged cache is begun anew, once and with one warning; after any other failure,
//            and a second damage, nothing more is read from or written to it, with a warning, too.
//   Threads: all functions from any thread. isKnownClean() takes no lock.
//   Memory:  56 bytes for each file known at the beginning, and a bounded batch.
#ifndef VOLE_TOOL_SCAN_CACHE_H
#define VOLE_TOOL_SCAN_CACHE_H

#include <sys/stat.h>

#include <chrono>
#include <ctime>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "CleanFiles.h"
#include "Messages.h"

class ScanCache {
public:
    // Called with one line of text, by any thread; must not call back.
    using Warn = std::function<void(std::string_view)>;

    ScanCache(std::string path, std::string setId, std::string limits, Warn warn = complain);
    ScanCache(const ScanCache&) = delete;
    ScanCache& operator=(const ScanCache&) = delete;
    ~ScanCache() { finish(); }

    bool isKnownClean(const struct stat& file);

    // To be kept for as long as the cache's own file is open for a scan; locks nothing for any other file. Closing the
    // file drops all locks that the process has on it, and a transaction must not lose its own.
    std::unique_lock<std::mutex> holdIfOwn(const struct stat& file);

    // `before` and `after` are the file's state before its first and after its last byte was read, `scanStart` the time
    // (CLOCK_REALTIME) before `before`. Remembers nothing when they differ, or when the file was changed so shortly
    // before the scan that a further change could have left the same times.
    void rememberClean(const struct stat& before, const struct stat& after, const timespec& scanStart);

    // Writes what is still collected and closes the cache. What is remembered later is dropped.
    void finish();

private:
    using Clock = std::chrono::steady_clock;

    void collect(const FileStamp& file);
    void writeCollected();
    template <class Action>
    void guarded(Action action, const char* consequence);
    void warn(std::string_view text, std::string_view consequence) const;

    const std::string _path, _setId, _limits;
    const Warn _warn;
    const std::int32_t _today;
    struct stat _own {};                 // the cache's file
    std::vector<CleanFile> _known;       // not changed behind the constructor
    std::mutex _mutex;                   // guards what follows
    std::unique_ptr<CleanFiles> _files;  // null: going on without
    std::vector<FileStamp> _collected;
    std::size_t _added = 0;
    Clock::time_point _lastWrite = Clock::now();
    bool _rebuilt = false;
};

#endif  // VOLE_TOOL_SCAN_CACHE_H
