// RegularFile.h: opening files that must be regular ones. A FIFO or device given as a file would otherwise block the
// opener or never end.
#ifndef COMMON_STL_IO_REGULARFILE_H
#define COMMON_STL_IO_REGULARFILE_H

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <optional>

#include "io/FileIo.h"

namespace ZOV_SPACE {

// Opens for reading without waiting for anything; links are followed. Holds nothing, with errno set, on failure.
inline OwnFd openForReading(const char* path) { return openFile(path, O_RDONLY | O_NONBLOCK | O_NOCTTY); }

// The size in bytes of an open regular file; nothing, with errno set, for anything else.
inline std::optional<std::uint64_t> regularFileSize(int fd) {
    struct stat status;
    if (::fstat(fd, &status) != 0) return std::nullopt;
    if (!S_ISREG(status.st_mode)) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(status.st_size);
}

// Opens a regular file for reading. Holds nothing, with errno set, when it is none or cannot be opened.
inline OwnFd openRegularFile(const char* path) {
    OwnFd file = openForReading(path);
    if (file && !regularFileSize(file.get())) {
        const int reason = errno;
        file.reset();
        errno = reason;
    }
    return file;
}

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_REGULARFILE_H
