#include "unused/LimitedBufferBase.h"

#include "io/BufferSupport.h"

namespace ZOV_SPACE {

LimitedBufferBase::~LimitedBufferBase() = default;

void LimitedBufferBase::_ensureSize() const {
    if (!_exceeded && (_limit <= 0 || _inner->getSize() <= _limit)) return;
    _exceeded = true;
    kBufferUnit.raise<BufferBaseOverSizeException>("BufferBase exceeded size limit");
}

template <class Operation>
auto LimitedBufferBase::_checkedTwice(Operation operation) const {
    _ensureSize();
    const auto result = operation();
    _ensureSize();
    return result;
}

int LimitedBufferBase::read(long pos) {
    return _checkedTwice([&] { return _inner->read(pos); });
}

int LimitedBufferBase::read(long pos, char* buf, int n) {
    return _checkedTwice([&] { return _inner->read(pos, buf, n); });
}

int LimitedBufferBase::write(long pos, char c) {
    return _checkedTwice([&] { return _inner->write(pos, c); });
}

int LimitedBufferBase::write(long pos, const char* buf, int n) {
    return _checkedTwice([&] { return _inner->write(pos, buf, n); });
}

int LimitedBufferBase::insert(long pos, char c) {
    return _checkedTwice([&] { return _inner->insert(pos, c); });
}

int LimitedBufferBase::insert(long pos, const char* buf, int n) {
    return _checkedTwice([&] { return _inner->insert(pos, buf, n); });
}

int LimitedBufferBase::cut(long pos) {
    _ensureSize();
    return _inner->cut(pos);
}

int LimitedBufferBase::cut(long pos, int n) {
    _ensureSize();
    return _inner->cut(pos, n);
}

int LimitedBufferBase::append(char c) {
    return _checkedTwice([&] { return _inner->append(c); });
}

int LimitedBufferBase::append(const char* buf, int n) {
    return _checkedTwice([&] { return _inner->append(buf, n); });
}

int LimitedBufferBase::truncate(long len) {
    _ensureSize();
    return _inner->truncate(len);
}

long LimitedBufferBase::getSize() const {
    return _checkedTwice([&] { return _inner->getSize(); });
}

std::span<const char> LimitedBufferBase::view(long pos) {
    return _checkedTwice([&] { return _inner->view(pos); });
}

}  // namespace ZOV_SPACE
