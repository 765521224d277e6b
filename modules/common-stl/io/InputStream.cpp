#include "io/InputStream.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "StreamSupport.h"
#include "io/FileIo.h"

namespace ZOV_SPACE {

namespace {

constexpr int kSkipBytes = 512;

[[noreturn]] void raiseUnimplemented() { kInputHeaderUnit.raise<IOException>("Unimplemented"); }

int readDescriptor(int fd, char* buf, int len) {
    const ssize_t count = readSome(fd, buf, static_cast<std::size_t>(len));
    if (count < 0) kInputUnit.raise<IOException>(systemErrorText());
    return static_cast<int>(count);
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
    if (_fd < 0) kInputUnit.raise<IOException>(std::string(path ? path : "") + ": " + systemErrorText());
}

FileInputStream::FileInputStream(int fd) : _fd(fd) {}

FileInputStream::~FileInputStream() = default;

int FileInputStream::available() {
    requireOpen(_closed, kInputHeaderUnit);
    struct stat status;
    if (::fstat(_fd, &status) != 0) kInputUnit.raise<IOException>(systemErrorText());
    if (S_ISREG(status.st_mode)) {
        const off_t offset = ::lseek(_fd, 0, SEEK_CUR);
        if (offset < 0) kInputUnit.raise<IOException>(systemErrorText());
        return static_cast<int>(std::clamp<off_t>(status.st_size - offset, 0, INT_MAX));
    }
    int waiting = 0;
    if (::ioctl(_fd, FIONREAD, &waiting) != 0) kInputUnit.raise<IOException>(systemErrorText());
    return waiting;
}

void FileInputStream::close() {
    requireOpen(_closed, kInputHeaderUnit);
    _closed = true;
    if (_opened.reset() != 0) kInputUnit.raise<IOException>(systemErrorText());
}

int FileInputStream::read() {
    requireOpen(_closed, kInputHeaderUnit);
    char byte;
    return readDescriptor(_fd, &byte, 1) == 0 ? -1 : static_cast<unsigned char>(byte);
}

int FileInputStream::read(char* buf, int len) {
    requireOpen(_closed, kInputHeaderUnit);
    return buf == nullptr || len < 1 ? 0 : readDescriptor(_fd, buf, len);
}

long FileInputStream::skip(long n) {
    requireOpen(_closed, kInputHeaderUnit);
    return InputStream::skip(n);
}

bool FileInputStream::markSupported() {
    requireOpen(_closed, kInputHeaderUnit);
    struct stat status;
    if (::fstat(_fd, &status) != 0) kInputUnit.raise<IOException>(systemErrorText());
    return !S_ISCHR(status.st_mode) && !S_ISFIFO(status.st_mode) && !S_ISSOCK(status.st_mode);
}

void FileInputStream::mark(int) {
    requireOpen(_closed, kInputHeaderUnit);
    const off_t offset = ::lseek(_fd, 0, SEEK_CUR);
    if (offset < 0) kInputUnit.raise<IOException>("File::mark:" + systemErrorText() + ", possibly non-seekable fd");
    _mark = offset;
}

void FileInputStream::reset() {
    requireOpen(_closed, kInputHeaderUnit);
    if (_mark < 0) kInputUnit.raise<IOException>("No mark set");
    if (::lseek(_fd, _mark, SEEK_SET) < 0) kInputUnit.raise<IOException>(systemErrorText());
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

}  // namespace ZOV_SPACE
