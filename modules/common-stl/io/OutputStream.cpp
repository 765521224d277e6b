#include "io/OutputStream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <new>
#include <stdexcept>

#include "Raise.h"
#include "io/FileIo.h"

namespace ZOV_SPACE {

namespace {

constexpr ThrowUnit kUnit{"io/OutputStream"};
constexpr ThrowUnit kHeaderUnit{"../../../modules/common-stl/include/io/OutputStream"};
constexpr mode_t kNewFileMode = S_IRUSR | S_IWUSR;

[[noreturn]] void raiseUnimplemented() { kHeaderUnit.raise<IOException>("Unimplemented"); }

void requireOpen(bool closed) {
    if (closed) kHeaderUnit.raise<IOException>("Stream is already closed");
}

std::unique_ptr<char[]> allocate(int bytes) {
    std::unique_ptr<char[]> block(new (std::nothrow) char[static_cast<std::size_t>(bytes)]);
    if (!block) kUnit.raise<OutOfMemoryException>("Out of memory");
    return block;
}

}  // namespace

OutputStream::~OutputStream() = default;

void OutputStream::close() { raiseUnimplemented(); }
void OutputStream::flush() {}
int OutputStream::write(char) { raiseUnimplemented(); }

int OutputStream::write(const char* s) {
    if (s == nullptr) return 0;
    return write(s, static_cast<int>(std::min<std::size_t>(std::strlen(s), INT_MAX)));
}

int OutputStream::write(const char*, int) { raiseUnimplemented(); }

std::span<char> OutputStream::lendSpace() { return {}; }
void OutputStream::commitSpace(long) { raiseUnimplemented(); }
bool OutputStream::discards() const { return false; }

FileOutputStream::FileOutputStream(const char* path, int flags)
    : _opened(openFile(path ? path : "", flags, kNewFileMode)) {
    _fd = _opened.get();
    if (_fd < 0) kUnit.raise<IOException>(std::string(path ? path : "") + ": " + systemErrorText());
}

FileOutputStream::FileOutputStream(int fd) : _fd(fd) {}

FileOutputStream::~FileOutputStream() = default;

void FileOutputStream::checkOpen() const { requireOpen(_closed); }

void FileOutputStream::close() {
    checkOpen();
    _closed = true;
    if (_opened.reset() != 0) kUnit.raise<IOException>(systemErrorText());
}

void FileOutputStream::flush() { checkOpen(); }

int FileOutputStream::write(char c) { return write(&c, 1); }

int FileOutputStream::write(const char* buf, int len) {
    checkOpen();
    if (buf == nullptr || len < 1) return 0;
    if (!writeAll(_fd, buf, static_cast<std::size_t>(len))) kUnit.raise<IOException>(systemErrorText());
    return len;
}

FilterOutputStream::~FilterOutputStream() = default;

void FilterOutputStream::close() { _out->close(); }
void FilterOutputStream::flush() { _out->flush(); }
int FilterOutputStream::write(char c) { return _out->write(c); }
int FilterOutputStream::write(const char* buf, int len) { return _out->write(buf, len); }

BufferedOutputStream::BufferedOutputStream(OutputStream* out, int bufferSize)
    : FilterOutputStream(out), _buffer(allocate(std::max(bufferSize, 1))), _bufferSize(std::max(bufferSize, 1)) {}

BufferedOutputStream::~BufferedOutputStream() = default;

void BufferedOutputStream::checkOpen() const { requireOpen(_closed); }

void BufferedOutputStream::flushBuffer() {
    if (_count == 0) return;
    _out->write(_buffer.get(), _count);
    _count = 0;
}

void BufferedOutputStream::close() {
    checkOpen();
    flushBuffer();
    _closed = true;
    _out->close();
}

void BufferedOutputStream::flush() {
    checkOpen();
    flushBuffer();
    _out->flush();
}

int BufferedOutputStream::write(char c) { return write(&c, 1); }

int BufferedOutputStream::write(const char* buf, int len) {
    checkOpen();
    if (buf == nullptr || len < 1) return 0;
    if (len > _bufferSize - _count) flushBuffer();
    if (len >= _bufferSize) return _out->write(buf, len);
    std::memcpy(_buffer.get() + _count, buf, static_cast<std::size_t>(len));
    _count += len;
    return len;
}

StringOutputStream::StringOutputStream(int initialCapacity) try {
    _string.reserve(static_cast<std::size_t>(std::max(initialCapacity, 0)));
} catch (const std::bad_alloc&) {
    kUnit.raise<OutOfMemoryException>("Out of memory");
} catch (const std::length_error&) {
    kUnit.raise<OutOfMemoryException>("Out of memory");
}

StringOutputStream::~StringOutputStream() = default;

void StringOutputStream::checkOpen() const { requireOpen(_closed); }

void StringOutputStream::close() {
    checkOpen();
    _closed = true;
}

void StringOutputStream::flush() { checkOpen(); }

int StringOutputStream::write(char c) { return write(&c, 1); }

int StringOutputStream::write(const char* buf, int len) {
    checkOpen();
    if (buf == nullptr || len < 1) return 0;
    try {
        _string.append(buf, static_cast<std::size_t>(len));
    } catch (const std::bad_alloc&) {
        kUnit.raise<OutOfMemoryException>("Out of memory");
    } catch (const std::length_error&) {
        kUnit.raise<OutOfMemoryException>("Out of memory");
    }
    return len;
}

}  // namespace ZOV_SPACE
