#include "io/NewFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <random>

#include "io/FileIo.h"
#include "io/RegularFile.h"

namespace ZOV_SPACE {

NewFile::NewFile(const std::string& path, mode_t mode)
    : _path(path), _newPath(path + "." + std::to_string(std::random_device()()) + ".new") {
    _file = openFile(_newPath.c_str(), O_RDWR | O_CREAT | O_EXCL, mode);
}

NewFile::~NewFile() {
    if (_file) ::unlink(_newPath.c_str());
}

bool NewFile::takeName() {
    const std::size_t slash = _path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : _path.substr(0, slash + 1);
    const OwnFd directory = openForReading(folder.c_str());
    if (!directory && errno != EACCES) return false;  // Not everybody who may write to it may read it.
    if (::fsync(_file.get()) != 0 || ::rename(_newPath.c_str(), _path.c_str()) != 0) return false;
    _file.reset();
    return !directory || ::fsync(directory.get()) == 0;
}

}  // namespace ZOV_SPACE
