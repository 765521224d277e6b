// FileLock: an exclusive lock between processes, held on a file. Record locks belong to the process: threads of one
// process do not exclude each other, and closing any descriptor of the file gives the lock back.
//   Threads: one at a time.   Nothing throws; -1 is failure, with errno set where a system call failed.
#ifndef COMMON_STL_UNUSED_FILELOCK_H
#define COMMON_STL_UNUSED_FILELOCK_H

#include <fcntl.h>

#include <array>

#include "CPObject.h"
#include "io/OwnFd.h"

namespace ZOV_SPACE {

class FileLock : public CPObject {
public:
    FileLock(const char* path, bool shared) { setPath(path, shared); }
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    // Closes what is open, then opens the file, creating it for its owner only, or for everyone when `shared`. Only
    // the first kMaxPathLength bytes of the path count. The lock stays invalid for a null or empty path and when the
    // file cannot be opened; a symbolic link is not followed.
    void setPath(const char* path, bool shared);

    int lock();    // Waits for the lock. A signal handler that ran meanwhile ends it with -1 and EINTR.
    int unlock();  // Gives the lock back; the file stays open.
    int close();   // Also gives the lock back. -1 when nothing is open or closing fails.
    int unlink();  // Removes the file by its path. -1 when the lock is invalid.
    bool isValid() const { return static_cast<bool>(_fd); }

    static constexpr std::size_t kMaxPathLength = 255;

private:
    int apply(struct flock& record);

    OwnFd _fd;
    struct flock _lockRecord {};
    struct flock _unlockRecord {};
    std::array<char, kMaxPathLength + 1> _path{};
    bool _shared = false;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_UNUSED_FILELOCK_H
