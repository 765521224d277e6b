// TempFile: a named file with given content, removed at the end of the test.
#ifndef TESTS_SUPPORT_TEMPFILE_H
#define TESTS_SUPPORT_TEMPFILE_H

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

#include "io/OwnFd.h"

namespace ZOV_SPACE {

class TempFile {
public:
    explicit TempFile(const std::string& content = "") {
        _fd.reset(::mkostemp(_path.data(), O_CLOEXEC));
        if (!_fd || ::write(_fd.get(), content.data(), content.size()) != static_cast<ssize_t>(content.size())) {
            throw std::runtime_error("cannot make " + _path);
        }
        ::lseek(_fd.get(), 0, SEEK_SET);
    }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;
    ~TempFile() { ::unlink(_path.c_str()); }

    const char* path() const { return _path.c_str(); }
    int fd() const { return _fd.get(); }  // Open for reading and writing; starts at offset 0.

    std::string content() const {
        std::string all;
        char piece[4096];
        for (ssize_t n; (n = ::pread(_fd.get(), piece, sizeof piece, static_cast<off_t>(all.size()))) > 0;) {
            all.append(piece, static_cast<std::size_t>(n));
        }
        return all;
    }

private:
    std::string _path = "/tmp/vole-test-XXXXXX";
    OwnFd _fd;
};

}  // namespace ZOV_SPACE

#endif  // TESTS_SUPPORT_TEMPFILE_H
