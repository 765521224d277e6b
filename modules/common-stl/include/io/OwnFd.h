// OwnFd: owns a file descriptor and closes it.
#ifndef COMMON_STL_IO_OWNFD_H
#define COMMON_STL_IO_OWNFD_H

#include <unistd.h>

#include <utility>

#include "NoCancel.h"

namespace ZOV_SPACE {

class OwnFd {
public:
    OwnFd() = default;
    explicit OwnFd(int fd) : _fd(fd) {}
    OwnFd(OwnFd&& other) noexcept : _fd(std::exchange(other._fd, -1)) {}
    OwnFd& operator=(OwnFd&& other) noexcept {
        if (this != &other) reset(std::exchange(other._fd, -1));
        return *this;
    }
    ~OwnFd() { reset(); }

    int get() const { return _fd; }
    explicit operator bool() const { return _fd >= 0; }
    int release() { return std::exchange(_fd, -1); }

    // Closes what is held and takes `fd` over. Returns close()'s result, 0 when nothing was held.
    int reset(int fd = -1) {
        const int old = std::exchange(_fd, fd);
        if (old < 0) return 0;
        const NoCancel guard;
        return ::close(old);
    }

private:
    int _fd = -1;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_OWNFD_H
