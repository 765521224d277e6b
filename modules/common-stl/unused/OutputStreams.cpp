#include "unused/OutputStreams.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>

#include "io/FileIo.h"
#include "io/StreamSupport.h"

namespace ZOV_SPACE {

namespace {

constexpr mode_t kNewFileMode = S_IRUSR | S_IWUSR;

}  // namespace

FileOutputStream::FileOutputStream(const char* path, int flags)
    : _opened(openFile(path ? path : "", flags, kNewFileMode)) {
    _fd = _opened.get();
    if (_fd < 0) kOutputUnit.raise<IOException>(std::string(path ? path : "") + ": " + systemErrorText());
}

FileOutputStream::FileOutputStream(int fd) : _fd(fd) {}

FileOutputStream::~FileOutputStream() = default;

void FileOutputStream::checkOpen() const { requireOpen(_closed, kOutputHeaderUnit); }

void FileOutputStream::close() {
    checkOpen();
    _closed = true;
    if (_opened.reset() != 0) kOutputUnit.raise<IOException>(systemErrorText());
}

void FileOutputStream::flush() { checkOpen(); }

int FileOutputStream::write(char c) { return write(&c, 1); }

int FileOutputStream::write(const char* buf, int len) {
    checkOpen();
    if (buf == nullptr || len < 1) return 0;
    if (!writeAll(_fd, buf, static_cast<std::size_t>(len))) kOutputUnit.raise<IOException>(systemErrorText());
    return len;
}

FilterOutputStream::~FilterOutputStream() = default;

void FilterOutputStream::close() { _out->close(); }
void FilterOutputStream::flush() { _out->flush(); }
int FilterOutputStream::write(char c) { return _out->write(c); }
int FilterOutputStream::write(const char* buf, int len) { return _out->write(buf, len); }

BufferedOutputStream::BufferedOutputStream(OutputStream* out, int bufferSize)
    : FilterOutputStream(out),
      _buffer(allocateBlock(std::max(bufferSize, 1), kOutputUnit)),
      _bufferSize(std::max(bufferSize, 1)) {}

BufferedOutputStream::~BufferedOutputStream() = default;

void BufferedOutputStream::checkOpen() const { requireOpen(_closed, kOutputHeaderUnit); }

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
    kOutputUnit.raise<OutOfMemoryException>("Out of memory");
} catch (const std::length_error&) {
    kOutputUnit.raise<OutOfMemoryException>("Out of memory");
}

StringOutputStream::~StringOutputStream() = default;

void StringOutputStream::checkOpen() const { requireOpen(_closed, kOutputHeaderUnit); }

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
        kOutputUnit.raise<OutOfMemoryException>("Out of memory");
    } catch (const std::length_error&) {
        kOutputUnit.raise<OutOfMemoryException>("Out of memory");
    }
    return len;
}

}  // namespace ZOV_SPACE
