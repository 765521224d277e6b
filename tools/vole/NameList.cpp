#include "NameList.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Interruption.h"
#include "Messages.h"

namespace {

constexpr std::size_t kBlockBytes = 64 * 1024;
constexpr std::size_t kLongestName = 64 * 1024;  // Far beyond PATH_MAX.

int openList(const std::string& path) {
    if (path == "-") return STDIN_FILENO;
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) throw ListError("cannot open the list " + path + ": " + systemText(errno));
    return fd;
}

}  // namespace

NameList::NameList(std::string path, char separator)
    : _path(std::move(path)), _separator(separator), _fd(openList(_path)) {}

NameList::~NameList() {
    if (_fd != STDIN_FILENO) ::close(_fd);
}

bool NameList::next(Target& name) {
    std::string text;
    if (!_ended && readName(text)) {
        name = judged(std::move(text));
        return true;
    }
    if (_readError.empty()) return false;
    name = {_path, "cannot read the list: " + std::exchange(_readError, "")};
    return true;
}

// False at the end, when reading failed, and when a signal came.
bool NameList::readBlock() {
    _block.resize(kBlockBytes);
    _position = 0;
    ssize_t bytes = -1;
    do {
        if (!waitReadable(_fd)) break;
        bytes = ::read(_fd, _block.data(), _block.size());
    } while (bytes < 0 && (errno == EINTR || errno == EAGAIN));
    if (bytes < 0 && !isInterrupted()) _readError = systemText(errno);
    _block.resize(bytes > 0 ? static_cast<std::size_t>(bytes) : 0);
    _ended = bytes <= 0;
    return !_ended;
}

// A name that a failure cut short is none.
bool NameList::readName(std::string& name) {
    bool any = false;
    _tooLong = false;
    while (_position < _block.size() || readBlock()) {
        any = true;
        const std::size_t end = std::min(_block.find(_separator, _position), _block.size());
        _tooLong = _tooLong || end - _position > kLongestName - name.size();
        if (!_tooLong) name.append(_block, _position, end - _position);
        _position = end + 1;
        if (end < _block.size()) break;
    }
    if (any) ++_number;
    return any && _readError.empty() && !isInterrupted();
}

Target NameList::judged(std::string name) const {
    const char* error = "";
    if (_tooLong) {
        error = "the name is too long";
    } else if (name.empty()) {
        error = "the name is empty";
    } else if (name.find('\0') != std::string::npos) {
        error = "there is a NUL in the name; --null is for lists that have them between names";
    }
    if (*error == '\0') return {std::move(name)};
    return {_path + ':' + std::to_string(_number), error};
}
