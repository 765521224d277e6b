#include "io/NewFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <random>

#include "io/FileIo.h"
#include "io/RegularFile.h"

namespace ZOV_SPACE {
namespace {

// What an open file without a name can be linked from.
std::string procPath(const OwnFd& file) { return "/proc/self/fd/" + std::to_string(file.get()); }

}  // namespace

NewFile::NewFile(const std::string& path, mode_t mode)
    : _path(path), _newPath(path + "." + std::to_string(std::random_device()()) + ".new") {
    if (!makeUnnamed(mode)) makeNamed(mode);
}

NewFile::~NewFile() {
    if (_isNamed) ::unlink(_newPath.c_str());
}

bool NewFile::makeUnnamed(mode_t mode) {
    _file = openFile(folder().c_str(), O_RDWR | O_TMPFILE, mode);
    const bool canGetName = _file && ::access(procPath(_file).c_str(), F_OK) == 0;
    if (!canGetName) _file.reset();
    return canGetName;
}

bool NewFile::makeNamed(mode_t mode) {
    _held.emplace();
    _file = openFile(_newPath.c_str(), O_RDWR | O_CREAT | O_EXCL, mode);
    _isNamed = static_cast<bool>(_file);
    if (!_isNamed) _held.reset();
    return _isNamed;
}

std::string NewFile::folder() const {
    const std::size_t slash = _path.rfind('/');
    return slash == std::string::npos ? "." : _path.substr(0, slash + 1);
}

bool NewFile::settle() {
    if (_isSettled) return true;
    if (::fsync(_file.get()) != 0) return false;
    if (!_isNamed) {
        _held.emplace();
        const std::string source = procPath(_file);
        _isNamed = ::linkat(AT_FDCWD, source.c_str(), AT_FDCWD, _newPath.c_str(), AT_SYMLINK_FOLLOW) == 0;
        if (!_isNamed) _held.reset();
    }
    return _isSettled = _isNamed;
}

bool NewFile::takeName() {
    const OwnFd directory = openForReading(folder().c_str());
    if (!directory && errno != EACCES) return false;  // Not everybody who may write to it may read it.
    if (!settle() || ::rename(_newPath.c_str(), _path.c_str()) != 0) return false;
    _isNamed = false;
    _file.reset();
    const bool isOnDisk = !directory || ::fsync(directory.get()) == 0;
    _held.reset();
    return isOnDisk;
}

}  // namespace ZOV_SPACE
