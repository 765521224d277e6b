// Content.h: bytes to test with, and where they come from and go to.
#ifndef TESTS_SUPPORT_CONTENT_H
#define TESTS_SUPPORT_CONTENT_H

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

#include "io/BufferBase.h"
#include "io/OwnFd.h"
#include "support/TempDir.h"

namespace ZOV_SPACE {

// Bytes that repeat only after very many.
inline std::string numbered(long size) {
    std::string text;
    for (long i = 0; i < size; ++i) text += static_cast<char>(i * 31 + i / 256);
    return text;
}

inline std::string contentOf(BufferBase& buffer) {
    std::string all;
    char piece[20000];
    for (int count; (count = buffer.read(static_cast<long>(all.size()), piece, sizeof piece)) > 0;) {
        all.append(piece, static_cast<std::size_t>(count));
    }
    return all;
}

// A file without a name.
inline OwnFd fileOf(const std::string& content) {
    OwnFd file(::memfd_create("content", MFD_CLOEXEC));
    if (::write(file.get(), content.data(), content.size()) != static_cast<ssize_t>(content.size())) {
        throw std::runtime_error("cannot make a file in memory");
    }
    return file;
}

// A named file with given content, removed at the end of the test.
class TempFile {
public:
    explicit TempFile(const std::string& content = "") : _path(_dir.write("file", content)) {}

    const char* path() const { return _path.c_str(); }
    int fd() const { return _fd.get(); }  // Open for reading and writing; starts at offset 0.
    std::string content() const { return TempDir::contentOf(_path); }

private:
    TempDir _dir;
    std::string _path;
    OwnFd _fd{::open(_path.c_str(), O_RDWR | O_CLOEXEC)};
};

}  // namespace ZOV_SPACE

#endif  // TESTS_SUPPORT_CONTENT_H
