// ReadAhead: has the kernel read the beginnings of files that are scanned soon, many at once, while the disk is what a
// run waits for. As long as what is scanned is in memory already, it does nothing.
//
// Files are only opened, and the kernel is asked; nothing waits for what comes of it, and no error is anybody's
// concern: the scan that follows has the say. Throws nothing.
#ifndef VOLE_TOOL_READ_AHEAD_H
#define VOLE_TOOL_READ_AHEAD_H

#include <condition_variable>
#include <deque>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "Target.h"

class ReadAhead {
public:
    ReadAhead() = default;
    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;
    ~ReadAhead();

    // What is scanned after all that was named before. Threads: one at a time.
    void next(std::span<const Target> targets);

private:
    void start();
    void work();

    long _blocks = 0;  // That the process had read from disks, when it was looked at last.
    std::vector<std::thread> _threads;
    std::mutex _mutex;  // Guards what follows.
    std::condition_variable _changed;
    std::deque<std::string> _paths;
    bool _ended = false;
};

#endif  // VOLE_TOOL_READ_AHEAD_H
