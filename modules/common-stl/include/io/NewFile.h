// NewFile: a file with a name of its own beside the one that it is to become; gone unless it does. Under that name is
// the old file or the whole new one at any time, after a power failure, too.
//   Owns:    the descriptor, and the file until it has its name.
//   Threads: one.
#ifndef COMMON_STL_IO_NEWFILE_H
#define COMMON_STL_IO_NEWFILE_H

#include <sys/types.h>

#include <string>

#include "io/OwnFd.h"

namespace ZOV_SPACE {

class NewFile {
public:
    // Where it cannot be made, it is false, with errno set. Throws std::bad_alloc.
    explicit NewFile(const std::string& path, mode_t mode = 0644);
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile();

    int fd() const { return _file.get(); }
    explicit operator bool() const { return static_cast<bool>(_file); }

    // Once all was written: replaces what has the name. False with errno set.
    bool takeName();

private:
    std::string _path;
    std::string _newPath;
    OwnFd _file;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_NEWFILE_H
