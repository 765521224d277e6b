// TempFile: a named file with given content, removed at the end of the test.
#ifndef TESTS_SUPPORT_TEMPFILE_H
#define TESTS_SUPPORT_TEMPFILE_H

#include <fcntl.h>

#include "io/OwnFd.h"
#include "support/TempDir.h"

namespace ZOV_SPACE {

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

#endif  // TESTS_SUPPORT_TEMPFILE_H
