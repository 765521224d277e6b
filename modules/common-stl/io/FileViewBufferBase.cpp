// Until the first change, reads go to the viewed file through a FileWindow that is never written. The first change
// copies the file into a FileBufferBase, which takes over from then on; when copying fails, the view stays as it was.
#include "io/FileViewBufferBase.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "BufferSupport.h"

namespace ZOV_SPACE {

namespace {

constexpr int kCopyBytes = 262144;

}  // namespace

FileViewBufferBase::FileViewBufferBase(int fd, long size) {
    _type = kTypeFile;
    if (size >= 0 && size <= kMaxSize) _source.reset(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
    _valid = static_cast<bool>(_source);
    if (_valid) _size = size;
}

FileViewBufferBase::~FileViewBufferBase() = default;

// Reads from the viewed file and remembers when it does not hold what was announced. REQUIRES: no copy yet.
int FileViewBufferBase::_read(long pos, char* buf, int n) {
    if (pos >= _size) return 0;
    n = static_cast<int>(std::min<long>(n, _size - pos));
    try {
        const int count = _window.read(_source.get(), pos, buf, n, _size);
        if (count < n) _sourceFailed = true;
        return count;
    } catch (const IOException&) {
        _sourceFailed = true;
        throw;
    }
}

FileBufferBase& FileViewBufferBase::_ownCopy() {
    if (_copy) return *_copy;
    auto copy = std::make_unique<FileBufferBase>();
    if (!copy->isValid()) kBufferUnit.raise<OutOfMemoryException>("Out of memory");
    const std::unique_ptr<char[]> piece(new (std::nothrow) char[kCopyBytes]);
    if (!piece) kBufferUnit.raise<IOException>(systemErrorText(ENOMEM));
    for (long pos = 0; pos < _size;) {
        const int count = _read(pos, piece.get(), kCopyBytes);
        if (count < 1) break;
        copy->append(piece.get(), count);
        pos += count;
    }
    copy->flush();  // While the source is still there: the disk may be full.
    _copy = std::move(copy);
    _source.reset();
    _window.drop();
    return *_copy;
}

int FileViewBufferBase::read(long pos) {
    char byte;
    return read(pos, &byte, 1) == 0 ? -1 : static_cast<unsigned char>(byte);
}

int FileViewBufferBase::read(long pos, char* buf, int n) {
    requireUsable(_valid, pos);
    if (nothingToDo(buf, n)) return 0;
    Monitor guard(_mutex);
    return _copy ? _copy->read(pos, buf, n) : _read(pos, buf, n);
}

int FileViewBufferBase::write(long pos, char c) { return write(pos, &c, 1); }

int FileViewBufferBase::write(long pos, const char* buf, int n) {
    requireUsable(_valid, pos);
    if (nothingToDo(buf, n)) return 0;
    requireFits(pos, n);
    Monitor guard(_mutex);
    return _ownCopy().write(pos, buf, n);
}

int FileViewBufferBase::insert(long pos, char c) { return insert(pos, &c, 1); }

int FileViewBufferBase::insert(long pos, const char* buf, int n) {
    requireUsable(_valid, pos);
    if (nothingToDo(buf, n)) return 0;
    Monitor guard(_mutex);
    requireFits(std::max(pos, _currentSize()), n);
    return _ownCopy().insert(pos, buf, n);
}

int FileViewBufferBase::cut(long pos) { return cut(pos, 1); }

int FileViewBufferBase::cut(long pos, int n) {
    requireUsable(_valid, pos);
    if (n < 1) return 0;
    Monitor guard(_mutex);
    if (!_copy && pos >= _size) return 0;
    return _ownCopy().cut(pos, n);
}

int FileViewBufferBase::append(char c) { return append(&c, 1); }

int FileViewBufferBase::append(const char* buf, int n) {
    requireValid(_valid);
    if (nothingToDo(buf, n)) return 0;
    Monitor guard(_mutex);
    requireFits(_currentSize(), n);
    return _ownCopy().append(buf, n);
}

int FileViewBufferBase::truncate(long len) {
    requireUsable(_valid, len);
    Monitor guard(_mutex);
    if (!_copy && len >= _size) return 0;
    return _ownCopy().truncate(len);
}

long FileViewBufferBase::_currentSize() const { return _copy ? _copy->getSize() : _size; }

long FileViewBufferBase::getSize() const {
    Monitor guard(_mutex);
    return _currentSize();
}

int FileViewBufferBase::getFileDescriptor() {
    Monitor guard(_mutex);
    return _copy ? _copy->getFileDescriptor() : _source.get();
}

bool FileViewBufferBase::sourceFailed() const {
    Monitor guard(_mutex);
    return _sourceFailed;
}

}  // namespace ZOV_SPACE
