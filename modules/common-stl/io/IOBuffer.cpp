#include "io/IOBuffer.h"

namespace ZOV_SPACE {

IOBuffer::~IOBuffer() = default;

int IOBuffer::read() {
    const int byte = _buffer->read(_position);
    if (byte != -1) ++_position;
    return byte;
}

int IOBuffer::read(char* buf, int len) {
    const int count = _buffer->read(_position, buf, len);
    _position += count;
    return count;
}

int IOBuffer::write(char c) {
    const int count = _buffer->write(_position, c);
    ++_position;
    return count;
}

int IOBuffer::write(const char* buf, int len) {
    const int count = _buffer->write(_position, buf, len);
    _position += count;
    return count;
}

int IOBuffer::insert(char c) {
    const int count = _buffer->insert(_position, c);
    ++_position;
    return count;
}

int IOBuffer::insert(const char* buf, int len) {
    const int count = _buffer->insert(_position, buf, len);
    _position += count;
    return count;
}

long IOBuffer::cut(int len) {
    _buffer->cut(_position, len);
    return _position;
}

int IOBuffer::truncate() { return _buffer->truncate(_position); }

long IOBuffer::seek(int whence, long offset) {
    // Where the cursor goes when base + offset is no position.
    const auto moveFrom = [&](long base, long otherwise) {
        long target;
        const bool overflows = __builtin_add_overflow(base, offset, &target);
        _position = overflows || target < 0 ? otherwise : target;
    };
    if (whence == 0) {
        moveFrom(0, 0);
    } else if (whence == 1) {
        moveFrom(_position, _position);
    } else if (whence == 2) {
        const long size = _buffer->getSize();
        moveFrom(size, size);
    }
    return _position;
}

std::unique_ptr<BufferBaseInputStream> IOBuffer::getInputStream() {
    return std::make_unique<BufferBaseInputStream>(_buffer, _position, 0);
}

std::unique_ptr<BufferBaseOutputStream> IOBuffer::getOutputStream() {
    return std::make_unique<BufferBaseOutputStream>(_buffer, _position);
}

}  // namespace ZOV_SPACE
