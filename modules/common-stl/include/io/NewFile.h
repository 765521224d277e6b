// NewFile: a file that is to take another one's place. Under that one's name is the old file or the whole new one at
// any time, after a power failure, too.
//
// It has no name until it is settled, so that nothing is left of it, however the process ends. Where the file system
// has no such files, it is called "PATH.NUMBER.new" from the start. While it is called that, signals are held on the
// thread: only a kill or a power failure leaves such a file.
//   Owns:    the descriptor, and the file until it has its name.
//   Threads: one, from the first call to the end.
#ifndef COMMON_STL_IO_NEWFILE_H
#define COMMON_STL_IO_NEWFILE_H

#include <sys/types.h>

#include <optional>
#include <string>

#include "SignalsHeld.h"
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

    // Once all was written: has it on the disk, beside the old one, so that little can keep it from taking the name.
    // For files that go together: settle all of them, then have them take their names. False with errno set.
    bool settle();

    // Replaces what has the name; settles before that if need be. False with errno set.
    bool takeName();

private:
    bool makeUnnamed(mode_t mode);
    bool makeNamed(mode_t mode);
    std::string folder() const;

    std::optional<SignalsHeld> _held;  // While there is a file of that name.
    std::string _path;
    std::string _newPath;
    OwnFd _file;
    bool _isNamed = false;  // The new path.
    bool _isSettled = false;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_NEWFILE_H
