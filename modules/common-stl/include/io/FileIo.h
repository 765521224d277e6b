// FileIo.h: descriptors, read and written as a whole and opened without losing one. Nothing throws: failures are -1,
// false or nothing held, with errno set.
#ifndef COMMON_STL_IO_FILEIO_H
#define COMMON_STL_IO_FILEIO_H

#include <fcntl.h>
#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "io/OwnFd.h"

namespace ZOV_SPACE {

// Calls `step(done)`, which answers as read() does, until `n` bytes are done, it answers 0 or it fails; a call that a
// signal interrupted is made again. Returns the number of bytes done, or -1.
template <class Step>
std::int64_t transferAll(std::size_t n, Step step) {
    std::size_t done = 0;
    while (done < n) {
        const ssize_t count = step(done);
        if (count == 0) break;
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            return -1;
        }
    }
    return static_cast<std::int64_t>(done);
}

// One read(), made again when a signal interrupted it.
ssize_t readSome(int fd, void* bytes, std::size_t n);

// Read `n` bytes, or fewer at the end of the file; -1 on an error. From the descriptor's offset, which moves, or from
// `position`, which leaves it alone.
std::int64_t readAll(int fd, void* bytes, std::size_t n);
std::int64_t readAllAt(int fd, void* bytes, std::size_t n, std::int64_t position);

// Write all `n` bytes. After a failure some of them may have been written.
bool writeAll(int fd, const void* bytes, std::size_t n);
bool writeAllAt(int fd, const void* bytes, std::size_t n, std::int64_t position);

// Open a file, close-on-exec added to the flags of open(2). All opening goes through these: open() is a cancellation
// point, and a thread that is cancelled between the system's answer and the return loses the descriptor. So a
// cancellation waits until somebody owns it.
OwnFd openFile(const char* path, int flags, mode_t mode = 0);
OwnFd openFileAt(int directory, const char* path, int flags, mode_t mode = 0);

// A new file for reading and writing, its owner's alone. Its path is `path` with "XXXXXX" at the end replaced, which is
// written there.
OwnFd createTemporaryFile(char* path);
// The same in /tmp without a name: it is gone once it is closed.
OwnFd createAnonymousFile();
// Its end: whoever has one gives it back here rather than closing it.
void releaseAnonymousFile(OwnFd file) noexcept;

// Where anonymous files come from in a process that may not make any.
class AnonymousFiles {
public:
    virtual ~AnonymousFiles() = default;
    virtual OwnFd take() = 0;  // An empty one.
    virtual void giveBack(OwnFd file) noexcept = 0;
};
// From now on, in the whole process; null for the system's. Borrowed.
void takeAnonymousFilesFrom(AnonymousFiles* files);

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_FILEIO_H
