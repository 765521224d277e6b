// The content lies in the file as it is, from its start on. Small reads and writes go through a FileWindow; what moves
// content (insert, cut) or makes a gap flushes and drops the window first and works on the file. The file may be longer
// than the content, after a failure or a truncation; it is cut before a gap is made and before others may look at it.
//
// Nothing is lost when the disk is full: room is taken before bytes are moved, and the size grows last.
#include "io/FileBufferBase.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

#include "BufferSupport.h"
#include "io/FileIo.h"

namespace ZOV_SPACE {

namespace {

constexpr long kMoveBytes = 65536;
constexpr mode_t kMode = S_IRUSR | S_IWUSR;

[[noreturn]] void raiseErrno(int error = errno) { kBufferUnit.raise<IOException>(systemErrorText(error)); }

}  // namespace

FileBufferBase::FileBufferBase() { _init(); }

FileBufferBase::FileBufferBase(const char* dir) : _path(dir ? dir : "") { _init(); }

FileBufferBase::~FileBufferBase() {
    if (_created) ::unlink(_path.c_str());
    if (_path.empty()) releaseAnonymousFile(std::move(_file));
}

void FileBufferBase::_init() {
    _type = kTypeFile;
    if (_path.empty()) {
        _file = createAnonymousFile();
    } else {
        _path += "/XXXXXX";
        _file = createTemporaryFile(_path.data());
        _created = static_cast<bool>(_file);
    }
    _valid = static_cast<bool>(_file);
}

void FileBufferBase::open() {
    if (_path.empty()) kBufferUnit.raise<IOException>("The method is not supported, if the file name is empty.");
    Monitor guard(_mutex);
    if (_valid || !_created) return;
    _file = openFile(_path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW, kMode);
    _valid = static_cast<bool>(_file);
    _window.drop();
    _setSize(0);
}

void FileBufferBase::close() {
    if (_path.empty()) kBufferUnit.raise<IOException>("The method is not supported, if the file name is empty.");
    Monitor guard(_mutex);
    if (!_valid) return;
    _window.flush(_file.get());
    _window.drop();
    _file.reset();
    _valid = false;
}

// A hole reads as zeros. The file may be longer than the content, so it is cut to `from` first.
void FileBufferBase::_pad(long from, long n) {
    _window.flush(_file.get());
    _window.drop();
    if (::ftruncate(_file.get(), from) != 0 || ::ftruncate(_file.get(), off_t{from} + n) != 0) raiseErrno();
}

// Moves the content from `from` on to `to`: upwards from the end backwards, downwards from the start, so that no byte
// is overwritten before it was read. REQUIRES: the window is flushed and dropped.
void FileBufferBase::_fileMove(long to, long from) {
    long left = _size - from;
    const long pieceBytes = std::min(left, kMoveBytes);
    if (pieceBytes < 1) return;
    const std::unique_ptr<char[]> piece(new (std::nothrow) char[static_cast<std::size_t>(pieceBytes)]);
    if (!piece) raiseErrno(ENOMEM);
    long done = 0;
    while (left > 0) {
        const long n = std::min(left, pieceBytes);
        left -= n;
        const long offset = to > from ? left : done;
        if (readFile(_file.get(), piece.get(), n, from + offset) < n) raiseErrno(EIO);
        writeFile(_file.get(), piece.get(), n, to + offset);
        done += n;
    }
}

void FileBufferBase::_write(long pos, const char* buf, int n) {
    requireFits(pos, n);
    if (pos > _size) _pad(_size, pos - _size);
    _window.write(_file.get(), pos, buf, n, std::max(_size, pos));
    _setSize(std::max(_size, pos + n));
}

int FileBufferBase::_cut(long pos, int n) {
    Monitor guard(_mutex);
    requireUsable(_valid, pos);
    if (n < 1) return 0;
    if (pos >= _size) return 0;
    n = static_cast<int>(std::min<long>(n, _size - pos));
    _window.flush(_file.get());
    _window.drop();
    _fileMove(pos, pos + n);
    _setSize(_size - n);
    return n;
}

int FileBufferBase::read(long pos) {
    char byte;
    return read(pos, &byte, 1) == 0 ? -1 : static_cast<unsigned char>(byte);
}

int FileBufferBase::read(long pos, char* buf, int n) {
    Monitor guard(_mutex);
    requireUsable(_valid, pos);
    if (nothingToDo(buf, n)) return 0;
    if (pos >= _size) return 0;
    n = static_cast<int>(std::min<long>(n, _size - pos));
    if (_window.read(_file.get(), pos, buf, n, _size) < n) raiseErrno(EIO);
    return n;
}

int FileBufferBase::write(long pos, char c) { return write(pos, &c, 1); }

int FileBufferBase::write(long pos, const char* buf, int n) {
    Monitor guard(_mutex);
    requireUsable(_valid, pos);
    if (nothingToDo(buf, n)) return 0;
    _write(pos, buf, n);
    return n;
}

int FileBufferBase::insert(long pos, char c) { return insert(pos, &c, 1); }

int FileBufferBase::insert(long pos, const char* buf, int n) {
    Monitor guard(_mutex);
    requireUsable(_valid, pos);
    if (nothingToDo(buf, n)) return 0;
    if (pos >= _size) {
        _write(pos, buf, n);
        return n;
    }
    requireFits(_size, n);
    _window.flush(_file.get());
    _window.drop();
    // Taking the room first keeps the content whole when the disk is full: the move overwrites as it goes.
    int error;
    do error = ::posix_fallocate(_file.get(), _size, n);
    while (error == EINTR);
    if (error != 0) raiseErrno(error);
    _fileMove(pos + n, pos);
    writeFile(_file.get(), buf, n, pos);
    _setSize(_size + n);
    return n;
}

int FileBufferBase::cut(long pos) { return _cut(pos, 1); }
int FileBufferBase::cut(long pos, int n) { return _cut(pos, n); }

int FileBufferBase::append(char c) { return append(&c, 1); }

int FileBufferBase::append(const char* buf, int n) {
    Monitor guard(_mutex);
    requireValid(_valid);
    if (nothingToDo(buf, n)) return 0;
    _write(_size, buf, n);
    return n;
}

int FileBufferBase::truncate(long len) {
    Monitor guard(_mutex);
    requireUsable(_valid, len);
    if (len >= _size) return 0;
    if (::ftruncate(_file.get(), len) != 0) raiseErrno();
    _window.truncate(len);
    _setSize(len);
    return 0;
}

bool FileBufferBase::isValid() const {
    Monitor guard(_mutex);
    return _valid;
}

void FileBufferBase::flush() {
    Monitor guard(_mutex);
    requireValid(_valid);
    _window.flush(_file.get());
}

int FileBufferBase::getFileDescriptor() {
    Monitor guard(_mutex);
    if (!_valid) return -1;
    _window.flush(_file.get());
    if (::ftruncate(_file.get(), _size) != 0) raiseErrno();
    return _file.get();
}

}  // namespace ZOV_SPACE
