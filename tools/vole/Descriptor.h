// Descriptor: an open file, which is closed with it; a negative number when there is none.
//   Threads: no state but the number.
#ifndef VOLE_TOOL_DESCRIPTOR_H
#define VOLE_TOOL_DESCRIPTOR_H

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

class Descriptor {
public:
    explicit Descriptor(int fd) : _fd(fd) {}
    // For reading, whatever it is, and without waiting for anything. errno says why there is none.
    explicit Descriptor(const char* path) : Descriptor(::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (_fd >= 0) ::close(_fd);
    }

    int number() const { return _fd; }
    bool status(struct stat& status) const { return _fd >= 0 && ::fstat(_fd, &status) == 0; }

private:
    int _fd;
};

#endif  // VOLE_TOOL_DESCRIPTOR_H
