#include "ReadAhead.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "Interruption.h"

namespace {

// As much as a scan reads of most files at once; the kernel itself goes on where a file is read in a row.
constexpr off_t kBeginning = 128 * 1024;

// Blocks that this process had to wait for a disk for, in all.
long blocksRead() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_inblock;
}

void askFor(const std::string& path) {
    struct stat status;
    // Opening anything else can have effects.
    if (::lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return;
    const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return;
    ::posix_fadvise(fd, 0, std::min(status.st_size, kBeginning), POSIX_FADV_WILLNEED);
    ::close(fd);
}

}  // namespace

ReadAhead::~ReadAhead() {
    {
        const std::lock_guard lock(_mutex);
        _ended = true;
    }
    _changed.notify_all();
    for (std::thread& thread : _threads) thread.join();
}

// The targets before these were asked for, or scanned, since the blocks were counted last.
void ReadAhead::next(std::span<const Target> targets) {
    const long before = std::exchange(_blocks, blocksRead());
    const bool isWaiting = _blocks - before > static_cast<long>(targets.size());
    if (!isWaiting) return;
    try {
        if (_threads.empty()) start();
        const std::lock_guard lock(_mutex);
        _paths.clear();  // Those are being scanned by now.
        for (const Target& target : targets) {
            if (target.error.empty() && !target.standardInput) _paths.push_back(target.path);
        }
    } catch (const std::exception&) {
        return;  // Nothing depends on it.
    }
    _changed.notify_all();
}

// Opening a file may have to wait for the disk, too.
void ReadAhead::start() {
    constexpr int kThreads = 4;
    const SignalsBlocked blocked;
    for (int i = 0; i < kThreads; ++i) _threads.emplace_back([this] { work(); });
}

void ReadAhead::work() {
    std::unique_lock lock(_mutex);
    while (!_ended) {
        if (_paths.empty()) {
            _changed.wait(lock);
            continue;
        }
        const std::string path = std::move(_paths.front());
        _paths.pop_front();
        lock.unlock();
        askFor(path);
        lock.lock();
    }
}
