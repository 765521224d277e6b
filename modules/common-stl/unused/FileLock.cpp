#include "unused/FileLock.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "io/RegularFile.h"

namespace ZOV_SPACE {
namespace {

constexpr mode_t kPrivateMode = 0600;
constexpr mode_t kSharedMode = 0666;

struct flock wholeFile(short type) {
    struct flock record {};
    record.l_type = type;
    record.l_whence = SEEK_SET;
    return record;
}

}  // namespace

void FileLock::setPath(const char* path, bool shared) {
    close();
    _shared = shared;
    _path.fill('\0');
    if (!path || !*path) return;
    std::memcpy(_path.data(), path, strnlen(path, kMaxPathLength));

    _fd = openFile(_path.data(), O_RDWR | O_CREAT | O_NOCTTY | O_NOFOLLOW, kPrivateMode);
    // The mode is a courtesy to other users: when the file is someone else's, the lock works all the same.
    if (_shared && regularFileSize(_fd.get())) static_cast<void>(::fchmod(_fd.get(), kSharedMode));
    _lockRecord = wholeFile(F_WRLCK);
    _unlockRecord = wholeFile(F_UNLCK);
}

int FileLock::apply(struct flock& record) { return _fd ? ::fcntl(_fd.get(), F_SETLKW, &record) : -1; }

int FileLock::lock() { return apply(_lockRecord); }

int FileLock::unlock() { return apply(_unlockRecord); }

int FileLock::close() { return _fd ? _fd.reset() : -1; }

int FileLock::unlink() { return _fd ? ::unlink(_path.data()) : -1; }

}  // namespace ZOV_SPACE
