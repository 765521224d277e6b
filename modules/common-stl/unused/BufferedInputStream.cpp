#include "unused/BufferedInputStream.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <utility>

#include "io/StreamSupport.h"

namespace ZOV_SPACE {

BufferedInputStream::BufferedInputStream(InputStream* in, int bufferSize)
    : FilterInputStream(in),
      _buffer(allocateBlock(std::max(bufferSize, 1), kInputUnit)),
      _bufferSize(std::max(bufferSize, 1)),
      _markLimit(_bufferSize) {}

BufferedInputStream::~BufferedInputStream() = default;

void BufferedInputStream::checkOpen() const { requireOpen(_closed, kInputHeaderUnit); }

void BufferedInputStream::growBuffer() {
    const int newSize = static_cast<int>(std::min<std::int64_t>(std::int64_t{_bufferSize} * 2, _markLimit));
    std::unique_ptr<char[]> grown = allocateBlock(newSize, kInputUnit);
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
    if (_mark < 0) kInputUnit.raise<IOException>("No mark was set");
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
