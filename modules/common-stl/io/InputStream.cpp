#include "io/InputStream.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

#include "Raise.h"
#include "io/FileIo.h"

namespace ZOV_SPACE {

namespace {

constexpr ThrowUnit kUnit{"io/InputStream"};
constexpr ThrowUnit kHeaderUnit{"../../../modules/common-stl/include/io/InputStream"};
constexpr int kSkipBytes = 512;

[[noreturn]] void raiseUnimplemented() { kHeaderUnit.raise<IOException>("Unimplemented"); }

void requireOpen(bool closed) {
    if (closed) kHeaderUnit.raise<IOException>("Stream is already closed");
}

int readDescriptor(int fd, char* buf, int len) {
    const ssize_t count = readSome(fd, buf, static_cast<std::size_t>(len));
    if (count < 0) kUnit.raise<IOException>(systemErrorText());
    return static_cast<int>(count);
}

std::unique_ptr<char[]> allocate(int bytes) {
    std::unique_ptr<char[]> block(new (std::nothrow) char[static_cast<std::size_t>(bytes)]);
    if (!block) kUnit.raise<OutOfMemoryException>("Out of memory");
    return block;
}

}  // namespace

InputStream::~InputStream() = default;

int InputStream::available() { raiseUnimplemented(); }
void InputStream::close() { raiseUnimplemented(); }
int InputStream::read() { raiseUnimplemented(); }

int InputStream::read(char* buf, int len) {
    if (buf == nullptr) return 0;
    int count = 0;
    for (; count < len; ++count) {
        const int byte = read();
        if (byte < 0) break;
        buf[count] = static_cast<char>(byte);
    }
    return count;
}

long InputStream::skip(long n) {
    char scratch[kSkipBytes];
    long skipped = 0;
    while (skipped < n) {
        const int count = read(scratch, static_cast<int>(std::min<long>(n - skipped, kSkipBytes)));
        if (count < 1) break;
        skipped += count;
    }
    return skipped;
}

bool InputStream::markSupported() { return false; }
void InputStream::mark(int) {}
void InputStream::reset() {}

FileInputStream::FileInputStream(const char* path) : _opened(openFile(path ? path : "", O_RDONLY)) {
    _fd = _opened.get();
    if (_fd < 0) kUnit.raise<IOException>(std::string(path ? path : "") + ": " + systemErrorText());
}

FileInputStream::FileInputStream(int fd) : _fd(fd) {}

FileInputStream::~FileInputStream() = default;

int FileInputStream::available() {
    requireOpen(_closed);
    struct stat status;
    if (::fstat(_fd, &status) != 0) kUnit.raise<IOException>(systemErrorText());
    if (S_ISREG(status.st_mode)) {
        const off_t offset = ::lseek(_fd, 0, SEEK_CUR);
        if (offset < 0) kUnit.raise<IOException>(systemErrorText());
        return static_cast<int>(std::clamp<off_t>(status.st_size - offset, 0, INT_MAX));
    }
    int waiting = 0;
    if (::ioctl(_fd, FIONREAD, &waiting) != 0) kUnit.raise<IOException>(systemErrorText());
    return waiting;
}

void FileInputStream::close() {
    requireOpen(_closed);
    _closed = true;
    if (_opened.reset() != 0) kUnit.raise<IOException>(systemErrorText());
}

int FileInputStream::read() {
    requireOpen(_closed);
    char byte;
    return readDescriptor(_fd, &byte, 1) == 0 ? -1 : static_cast<unsigned char>(byte);
}

int FileInputStream::read(char* buf, int len) {
    requireOpen(_closed);
    return buf == nullptr || len < 1 ? 0 : readDescriptor(_fd, buf, len);
}

long FileInputStream::skip(long n) {
    requireOpen(_closed);
    return InputStream::skip(n);
}

bool FileInputStream::markSupported() {
    requireOpen(_closed);
    struct stat status;
    if (::fstat(_fd, &status) != 0) kUnit.raise<IOException>(systemErrorText());
    return !S_ISCHR(status.st_mode) && !S_ISFIFO(status.st_mode) && !S_ISSOCK(status.st_mode);
}

void FileInputStream::mark(int) {
    requireOpen(_closed);
    const off_t offset = ::lseek(_fd, 0, SEEK_CUR);
    if (offset < 0) kUnit.raise<IOException>("File::mark:" + systemErrorText() + ", possibly non-seekable fd");
    _mark = offset;
}

void FileInputStream::reset() {
    requireOpen(_closed);
    if (_mark < 0) kUnit.raise<IOException>("No mark set");
    if (::lseek(_fd, _mark, SEEK_SET) < 0) kUnit.raise<IOException>(systemErrorText());
}

FilterInputStream::~FilterInputStream() = default;

int FilterInputStream::available() { return _in->available(); }
void FilterInputStream::close() { _in->close(); }
int FilterInputStream::read() { return _in->read(); }
int FilterInputStream::read(char* buf, int len) { return _in->read(buf, len); }
long FilterInputStream::skip(long n) { return _in->skip(n); }
bool FilterInputStream::markSupported() { return _in->markSupported(); }
void FilterInputStream::mark(int readLimit) { _in->mark(readLimit); }
void FilterInputStream::reset() { _in->reset(); }

BufferedInputStream::BufferedInputStream(InputStream* in, int bufferSize)
    : FilterInputStream(in),
      _buffer(allocate(std::max(bufferSize, 1))),
      _bufferSize(std::max(bufferSize, 1)),
      _markLimit(_bufferSize) {}

BufferedInputStream::~BufferedInputStream() = default;

void BufferedInputStream::checkOpen() const { requireOpen(_closed); }

void BufferedInputStream::growBuffer() {
    const int newSize = static_cast<int>(std::min<std::int64_t>(std::int64_t{_bufferSize} * 2, _markLimit));
    std::unique_ptr<char[]> grown = allocate(newSize);
    std::memcpy(grown.get(), _buffer.get(), static_cast<std::size_t>(_count));
    _buffer = std::move(grown);
    _bufferSize = newSize;
}

// REQUIRES: every byte of the block was read. Afterwards the block begins at the mark, when that still holds.
void BufferedInputStream::fillBuffer() {
    if (_mark < 0) {
        _position = 0;
    } else if (_position >= _bufferSize) {
        if (_mark > 0) {
            std::memmove(_buffer.get(), _buffer.get() + _mark, static_cast<std::size_t>(_count - _mark));
            _position -= _mark;
            _mark = 0;
        } else if (_bufferSize >= _markLimit) {
            _mark = -1;
            _position = 0;
        } else {
            growBuffer();
        }
    }
    _count = _position;
    _count += std::max(_in->read(_buffer.get() + _position, _bufferSize - _position), 0);
}

int BufferedInputStream::available() {
    checkOpen();
    return static_cast<int>(std::min<std::int64_t>(std::int64_t{_count - _position} + _in->available(), INT_MAX));
}

void BufferedInputStream::close() {
    checkOpen();
    _closed = true;
    _in->close();
}

int BufferedInputStream::read() {
    checkOpen();
    if (_position >= _count) fillBuffer();
    return _position >= _count ? -1 : static_cast<unsigned char>(_buffer[static_cast<std::size_t>(_position++)]);
}

int BufferedInputStream::read(char* buf, int len) {
    checkOpen();
    if (buf == nullptr || len < 1) return 0;
    if (_position >= _count) {
        if (_mark < 0 && len >= _bufferSize) return std::max(_in->read(buf, len), 0);
        fillBuffer();
    }
    const int count = std::min(len, _count - _position);
    std::memcpy(buf, _buffer.get() + _position, static_cast<std::size_t>(count));
    _position += count;
    return count;
}

long BufferedInputStream::skip(long n) {
    checkOpen();
    // Through the buffer; the inner stream's skip() would pass what is buffered by.
    return InputStream::skip(n);  // NOLINT(bugprone-parent-virtual-call)
}

bool BufferedInputStream::markSupported() {
    checkOpen();
    return true;
}

void BufferedInputStream::mark(int readLimit) {
    checkOpen();
    _markLimit = readLimit;
    _mark = _position;
}

void BufferedInputStream::reset() {
    checkOpen();
    if (_mark < 0) kUnit.raise<IOException>("No mark was set");
    _position = _mark;
}

bool BufferedInputStream::readLine(std::string& line) {
    checkOpen();
    line.clear();
    for (bool any = false;; any = true) {
        if (_position >= _count) fillBuffer();
        if (_position >= _count) return any;
        const char* begin = _buffer.get() + _position;
        const int left = _count - _position;
        const void* newline = std::memchr(begin, '\n', static_cast<std::size_t>(left));
        const int length = newline ? static_cast<int>(static_cast<const char*>(newline) - begin) : left;
        line.append(begin, static_cast<std::size_t>(length));
        _position += newline ? length + 1 : length;
        if (newline) {
            if (!line.empty() && line.back() == '\r') line.pop_back();
            return true;
        }
    }
}

}  // namespace ZOV_SPACE
