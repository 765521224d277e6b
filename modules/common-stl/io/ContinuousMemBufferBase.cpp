// One area from realloc(), which grows by what is needed and 4 KiB, so that writing byte by byte does not copy it every
// time, and keeps its capacity when the content gets shorter. Bytes behind the content are undefined: gaps are cleared.
#include "io/ContinuousMemBufferBase.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "BufferSupport.h"

namespace ZOV_SPACE {

namespace {

constexpr int kSpareBytes = 4096;  // Allocated beyond what is asked for.

std::size_t bytes(long n) { return static_cast<std::size_t>(n); }

}  // namespace

ContinuousMemBufferBase::ContinuousMemBufferBase(long n) {
    _type = kTypeContinuousMemory;
    _valid = _tryEnsureCapacity(n);
}

ContinuousMemBufferBase::~ContinuousMemBufferBase() = default;

bool ContinuousMemBufferBase::_tryEnsureCapacity(long n) {
    if (n <= _capacity) return true;
    if (n > INT_MAX - kSpareBytes) return false;
    char* area = static_cast<char*>(std::realloc(_data.get(), bytes(n + kSpareBytes)));
    if (area == nullptr) return false;
    static_cast<void>(_data.release());
    _data.reset(area);
    _capacity = static_cast<int>(n + kSpareBytes);
    return true;
}

void ContinuousMemBufferBase::_ensureCapacity(long n) {
    if (!_tryEnsureCapacity(n)) kBufferUnit.raise<IOException>(systemErrorText(ENOMEM));
}

// Every change of the content comes here, also one that leaves the size as it is.
void ContinuousMemBufferBase::_resize(long size) {
    _given = 0;
    _setSize(size);
}

void ContinuousMemBufferBase::_pad(long pos, long n) {
    if (n > 0) std::memset(_data.get() + pos, 0, bytes(n));
}

void ContinuousMemBufferBase::_write(long pos, const char* buf, int n) {
    requireFits(pos, n);
    _ensureCapacity(pos + n);
    _pad(_size, pos - _size);
    std::memcpy(_data.get() + pos, buf, bytes(n));
    _resize(std::max(_size, pos + n));
}

int ContinuousMemBufferBase::read(long pos) {
    requireUsable(_valid, pos);
    ReadGuard guard(_lock);
    return pos >= _size ? -1 : static_cast<unsigned char>(_data[bytes(pos)]);
}

int ContinuousMemBufferBase::read(long pos, char* buf, int n) {
    requireUsable(_valid, pos);
    if (nothingToDo(buf, n)) return 0;
    ReadGuard guard(_lock);
    if (pos >= _size) return 0;
    n = static_cast<int>(std::min<long>(n, _size - pos));
    std::memcpy(buf, _data.get() + pos, bytes(n));
    return n;
}

int ContinuousMemBufferBase::write(long pos, char c) { return write(pos, &c, 1); }

int ContinuousMemBufferBase::write(long pos, const char* buf, int n) {
    requireUsable(_valid, pos);
    if (nothingToDo(buf, n)) return 0;
    WriteGuard guard(_lock);
    _write(pos, buf, n);
    return n;
}

int ContinuousMemBufferBase::insert(long pos, char c) { return insert(pos, &c, 1); }

int ContinuousMemBufferBase::insert(long pos, const char* buf, int n) {
    requireUsable(_valid, pos);
    if (nothingToDo(buf, n)) return 0;
    WriteGuard guard(_lock);
    if (pos >= _size) {
        _write(pos, buf, n);
        return n;
    }
    requireFits(_size, n);
    _ensureCapacity(_size + n);
    char* gap = _data.get() + pos;
    std::memmove(gap + n, gap, bytes(_size - pos));
    std::memcpy(gap, buf, bytes(n));
    _resize(_size + n);
    return n;
}

int ContinuousMemBufferBase::cut(long pos) { return cut(pos, 1); }

int ContinuousMemBufferBase::cut(long pos, int n) {
    requireUsable(_valid, pos);
    if (n < 1) return 0;
    WriteGuard guard(_lock);
    if (pos >= _size) return 0;
    n = static_cast<int>(std::min<long>(n, _size - pos));
    char* gap = _data.get() + pos;
    std::memmove(gap, gap + n, bytes(_size - pos - n));
    _resize(_size - n);
    return n;
}

int ContinuousMemBufferBase::append(char c) { return append(&c, 1); }

int ContinuousMemBufferBase::append(const char* buf, int n) {
    requireValid(_valid);
    if (nothingToDo(buf, n)) return 0;
    WriteGuard guard(_lock);
    _write(_size, buf, n);
    return n;
}

int ContinuousMemBufferBase::truncate(long len) {
    requireUsable(_valid, len);
    WriteGuard guard(_lock);
    _resize(std::min(_size, len));
    return 0;
}

char* ContinuousMemBufferBase::getMemAddress() { return _data.get(); }

std::span<const char> ContinuousMemBufferBase::view(long pos) {
    ReadGuard guard(_lock);
    if (pos < 0 || pos >= _size) return {};
    return {_data.get() + pos, bytes(_size - pos)};
}

std::span<char> ContinuousMemBufferBase::appendSpace(long n) {
    requireValid(_valid);
    _given = 0;
    if (n < 1) return {};
    requireFits(_size, n);
    _ensureCapacity(_size + n);
    _given = n;
    return {_data.get() + _size, bytes(n)};
}

void ContinuousMemBufferBase::commitAppend(long n) {
    if (n < 1) return;
    if (n > _given) kBufferUnit.raise<IOException>("Index out of bound");
    _resize(_size + n);
}

}  // namespace ZOV_SPACE
