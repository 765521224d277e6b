#include "PositionInputStream.h"

#include <algorithm>
#include <limits>

namespace ZOV_SPACE {

PositionInputStream::~PositionInputStream() = default;

int PositionInputStream::read() {
    const int byte = _in->read();
    if (byte != -1) ++_position;
    return byte;
}

int PositionInputStream::read(char* buf, int len) {
    const int count = _in->read(buf, len);
    _position += std::max(count, 0);
    return count;
}

long PositionInputStream::skip(long n) {
    const long count = _in->skip(n);
    _position += count;
    return count;
}

void PositionInputStream::mark(int readLimit) {
    _in->mark(readLimit);
    _mark = _position;
}

void PositionInputStream::reset() {
    _in->reset();
    _position = _mark;
}

void PositionInputStream::skipTo(std::int64_t position) {
    while (_position < position) {
        const auto step = std::min<std::int64_t>(position - _position, std::numeric_limits<int>::max());
        if (skip(static_cast<long>(step)) < 1) return;
    }
}

}  // namespace ZOV_SPACE
