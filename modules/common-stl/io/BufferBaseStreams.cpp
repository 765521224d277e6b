#include "io/BufferBaseStreams.h"

#include <algorithm>
#include <climits>

#include "BufferSupport.h"

namespace ZOV_SPACE {

BufferBaseInputStream::~BufferBaseInputStream() = default;

void BufferBaseInputStream::checkOpen() const { requireStreamOpen(_closed); }

int BufferBaseInputStream::available() {
    checkOpen();
    const long size = _buffer->getSize();
    return _position >= size ? 0 : static_cast<int>(std::min<long>(size - _position, INT_MAX));
}

void BufferBaseInputStream::close() {
    checkOpen();
    _closed = true;
}

int BufferBaseInputStream::read() {
    checkOpen();
    const int byte = _buffer->read(_position);
    if (byte != -1) ++_position;
    return byte;
}

int BufferBaseInputStream::read(char* buf, int len) {
    checkOpen();
    const int count = _buffer->read(_position, buf, len);
    _position += count;
    return count;
}

long BufferBaseInputStream::skip(long n) {
    checkOpen();
    if (n < 0) return 0;
    // The furthest position is as far behind every content as any other.
    _position = n > kLargestPosition - _position ? kLargestPosition : _position + n;
    return n;
}

bool BufferBaseInputStream::markSupported() {
    checkOpen();
    return true;
}

void BufferBaseInputStream::mark(int) {
    checkOpen();
    _mark = _position;
}

void BufferBaseInputStream::reset() {
    checkOpen();
    if (_mark >= 0) _position = _mark;
}

BufferBaseOutputStream::~BufferBaseOutputStream() = default;

void BufferBaseOutputStream::checkOpen() const { requireStreamOpen(_closed); }

void BufferBaseOutputStream::close() {
    checkOpen();
    _closed = true;
}

void BufferBaseOutputStream::flush() { checkOpen(); }

int BufferBaseOutputStream::write(char c) {
    checkOpen();
    const int count = _buffer->write(_position, c);
    ++_position;
    return count;
}

int BufferBaseOutputStream::write(const char* buf, int len) {
    checkOpen();
    const int count = _buffer->write(_position, buf, len);
    _position += count;
    return count;
}

}  // namespace ZOV_SPACE
