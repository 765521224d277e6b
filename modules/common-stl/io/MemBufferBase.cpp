// Blocks in ascending order, found by bisection over their start. Appending fills the last block and adds one of at
// least 4 KiB when it is full. Inserting rebuilds the one block that it falls into, or puts a block of its own in
// front; cutting shrinks the blocks at both ends and drops those between. The blocks behind are renumbered: so neither
// moves content.
//
// Gaps are zeros without being written: blocks come zeroed from calloc(), and `touched` says up to where one no longer
// is as it came, so that only that part is cleared.
#include "io/MemBufferBase.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <new>
#include <utility>

#include "BufferSupport.h"
#include "LargePages.h"

namespace ZOV_SPACE {

namespace {

std::size_t bytes(long n) { return static_cast<std::size_t>(n); }

}  // namespace

MemBufferBase::Buffer::Buffer(long firstPosition, long n, bool exact)
    : start(firstPosition), capacity(0), used(0), touched(0) {
    if (!exact) n = std::max<long>(n, kMinBlock);
    if (n <= INT_MAX) data.reset(static_cast<char*>(std::calloc(bytes(n), 1)));
    if (!data) kBufferUnit.raise<IOException>(systemErrorText(ENOMEM));
    preferLargePages(data.get(), bytes(n));
    capacity = static_cast<int>(n);
}

void MemBufferBase::Buffer::cut(int offset, int n) {
    if (n == used) {
        data.reset();
        used = capacity = touched = 0;
        return;
    }
    std::memmove(data.get() + offset, data.get() + offset + n, bytes(used - offset - n));
    used -= n;
    shrinkToUsed();
}

// REQUIRES: used > 0.
void MemBufferBase::Buffer::shrinkToUsed() {
    if (used == capacity) return;
    if (char* smaller = static_cast<char*>(std::realloc(data.get(), bytes(used)))) {
        static_cast<void>(data.release());
        data.reset(smaller);
    }
    capacity = touched = used;
}

void MemBufferBase::Buffer::zeroAppend(int n) {
    const int dirty = std::min(n, std::max(touched - used, 0));
    std::memset(data.get() + used, 0, bytes(dirty));
    used += n;
}

void MemBufferBase::Buffer::overwrite(int offset, const char* from, int n) {
    std::memcpy(data.get() + offset, from, bytes(n));
    used = std::max(used, offset + n);
    touched = std::max(touched, offset + n);
}

MemBufferBase::MemBufferBase() = default;

MemBufferBase::MemBufferBase(long n) {
    try {
        _addBlock(0, Buffer(0, std::max(n, 0L), false));
    } catch (const IOException&) {
        _valid = false;
    }
}

MemBufferBase::~MemBufferBase() = default;

// Every change of the content comes here, also one that leaves the size as it is.
void MemBufferBase::_resize(long size) {
    _given = 0;
    _setSize(size);
}

// The index of the block that holds the position; when none does, that of the nearest block, or -1 without any.
int MemBufferBase::_findBlock(long pos) const {
    int low = 0;
    int high = static_cast<int>(_buffers.size()) - 1;
    int probed = -1;
    while (low <= high) {
        probed = low + (high - low) / 2;
        const Buffer& block = _buffers[static_cast<std::size_t>(probed)];
        if (pos < block.start) {
            high = probed - 1;
        } else if (pos - block.start >= block.capacity) {
            low = probed + 1;
        } else {
            break;
        }
    }
    return probed;
}

void MemBufferBase::_addBlock(std::size_t index, Buffer&& block) {
    try {
        _buffers.insert(_buffers.begin() + static_cast<std::ptrdiff_t>(index), std::move(block));
    } catch (const std::bad_alloc&) {
        kBufferUnit.raise<IOException>(systemErrorText(ENOMEM));
    }
}

void MemBufferBase::_ensureCapacity(long n) {
    if (n <= _size) return;
    const std::int64_t end = _buffers.empty() ? 0 : _buffers.back().end();
    if (n > end) _addBlock(_buffers.size(), Buffer(static_cast<long>(end), static_cast<long>(n - end), false));
}

// REQUIRES: capacity for `n` more bytes.
void MemBufferBase::_pad(long n) {
    for (auto index = static_cast<std::size_t>(_findBlock(_size)); n > 0; ++index) {
        Buffer& block = _buffers[index];
        const int piece = static_cast<int>(std::min<long>(block.room(), n));
        block.zeroAppend(piece);
        _resize(_size + piece);
        n -= piece;
    }
}

void MemBufferBase::_write(long pos, const char* buf, int n) {
    requireFits(pos, n);
    _ensureCapacity(pos + n);
    if (pos > _size) _pad(pos - _size);
    _resize(std::max(_size, pos + n));
    for (auto index = static_cast<std::size_t>(_findBlock(pos)); n > 0; ++index) {
        Buffer& block = _buffers[index];
        const int offset = static_cast<int>(pos - block.start);
        const int piece = std::min(n, block.capacity - offset);
        block.overwrite(offset, buf, piece);
        pos += piece;
        buf += piece;
        n -= piece;
    }
}

// REQUIRES: pos < _size.
void MemBufferBase::_insertInside(long pos, const char* buf, int n) {
    requireFits(_size, n);
    auto index = static_cast<std::size_t>(_findBlock(pos));
    if (_buffers[index].start == pos) {
        Buffer added(pos, n, true);
        added.overwrite(0, buf, n);
        _addBlock(index, std::move(added));
    } else {
        Buffer& old = _buffers[index];
        const int head = static_cast<int>(pos - old.start);
        Buffer rebuilt(old.start, long{old.used} + n, true);
        rebuilt.overwrite(0, old.data.get(), head);
        rebuilt.overwrite(head, buf, n);
        rebuilt.overwrite(head + n, old.data.get() + head, old.used - head);
        old = std::move(rebuilt);
    }
    while (++index < _buffers.size()) _buffers[index].start += n;
    _resize(_size + n);
}

int MemBufferBase::_cut(long pos, int n) {
    requireUsable(_valid, pos);
    if (n < 1) return 0;
    WriteGuard guard(_lock);
    if (pos >= _size) return 0;
    n = static_cast<int>(std::min<long>(n, _size - pos));

    // Whole blocks go, the first and the last one touched may stay in part.
    const auto first = static_cast<std::size_t>(_findBlock(pos));
    std::size_t emptyBegin = first;
    std::size_t index = first;
    int offset = static_cast<int>(pos - _buffers[first].start);
    if (offset > 0) ++emptyBegin;
    std::size_t emptyEnd = emptyBegin;
    for (int left = n; left > 0; ++index, offset = 0) {
        Buffer& block = _buffers[index];
        const int piece = std::min(left, block.used - offset);
        block.cut(offset, piece);
        left -= piece;
        if (block.used == 0) emptyEnd = index + 1;
    }
    const auto begin = _buffers.begin();
    _buffers.erase(begin + static_cast<std::ptrdiff_t>(emptyBegin), begin + static_cast<std::ptrdiff_t>(emptyEnd));
    for (index = first; index < _buffers.size(); ++index) {
        _buffers[index].start = index == 0 ? 0 : _buffers[index - 1].start + _buffers[index - 1].used;
    }
    _resize(_size - n);
    return n;
}

int MemBufferBase::read(long pos) {
    requireUsable(_valid, pos);
    ReadGuard guard(_lock);
    if (pos >= _size) return -1;
    const Buffer& block = _buffers[static_cast<std::size_t>(_findBlock(pos))];
    return static_cast<unsigned char>(block.data[bytes(pos - block.start)]);
}

int MemBufferBase::read(long pos, char* buf, int n) {
    requireUsable(_valid, pos);
    if (nothingToDo(buf, n)) return 0;
    ReadGuard guard(_lock);
    if (pos >= _size) return 0;
    n = static_cast<int>(std::min<long>(n, _size - pos));
    int done = 0;
    for (auto index = static_cast<std::size_t>(_findBlock(pos)); done < n; ++index) {
        const Buffer& block = _buffers[index];
        const int offset = static_cast<int>(pos + done - block.start);
        const int piece = std::min(n - done, block.used - offset);
        std::memcpy(buf + done, block.data.get() + offset, bytes(piece));
        done += piece;
    }
    return n;
}

int MemBufferBase::write(long pos, char c) { return write(pos, &c, 1); }

int MemBufferBase::write(long pos, const char* buf, int n) {
    requireUsable(_valid, pos);
    if (nothingToDo(buf, n)) return 0;
    WriteGuard guard(_lock);
    _write(pos, buf, n);
    return n;
}

int MemBufferBase::insert(long pos, char c) { return insert(pos, &c, 1); }

int MemBufferBase::insert(long pos, const char* buf, int n) {
    requireUsable(_valid, pos);
    if (nothingToDo(buf, n)) return 0;
    WriteGuard guard(_lock);
    if (pos < _size) {
        _insertInside(pos, buf, n);
    } else {
        _write(pos, buf, n);
    }
    return n;
}

int MemBufferBase::cut(long pos) { return _cut(pos, 1); }
int MemBufferBase::cut(long pos, int n) { return _cut(pos, n); }

int MemBufferBase::append(char c) { return append(&c, 1); }

int MemBufferBase::append(const char* buf, int n) {
    requireValid(_valid);
    if (nothingToDo(buf, n)) return 0;
    WriteGuard guard(_lock);
    _write(_size, buf, n);
    return n;
}

int MemBufferBase::truncate(long len) {
    requireUsable(_valid, len);
    WriteGuard guard(_lock);
    if (len >= _size) return 0;
    const int last = _findBlock(len);
    _buffers.erase(_buffers.begin() + last + 1, _buffers.end());
    _buffers.back().used = static_cast<int>(len - _buffers.back().start);
    _resize(len);
    return 0;
}

std::span<const char> MemBufferBase::view(long pos) {
    ReadGuard guard(_lock);
    if (pos < 0 || pos >= _size) return {};
    const Buffer& block = _buffers[static_cast<std::size_t>(_findBlock(pos))];
    const long offset = pos - block.start;
    return {block.data.get() + offset, bytes(block.used - offset)};
}

// A block with room for `n` bytes as the last one. The former last block must then be full.
void MemBufferBase::_startBlock(long n) {
    Buffer added(_size, n, false);
    if (!_buffers.empty() && _buffers.back().used == 0) {
        _buffers.back() = std::move(added);
        return;
    }
    _addBlock(_buffers.size(), std::move(added));
    if (_buffers.size() > 1) _buffers[_buffers.size() - 2].shrinkToUsed();
}

std::span<char> MemBufferBase::appendSpace(long n) {
    requireValid(_valid);
    _given = 0;
    if (n < 1) return {};
    requireFits(_size, n);
    if (_buffers.empty() || _buffers.back().room() < n) _startBlock(n);
    Buffer& block = _buffers.back();
    block.touched = std::max(block.touched, block.used + static_cast<int>(n));
    _given = n;
    return {block.data.get() + block.used, bytes(n)};
}

void MemBufferBase::commitAppend(long n) {
    if (n < 1) return;
    if (n > _given) kBufferUnit.raise<IOException>("Index out of bound");
    _buffers.back().used += static_cast<int>(n);
    _resize(_size + n);
}

void MemBufferBase::releaseSpare() {
    WriteGuard guard(_lock);
    _given = 0;
    if (_buffers.empty()) return;
    if (_buffers.back().used > 0) {
        _buffers.back().shrinkToUsed();
    } else {
        _buffers.pop_back();
    }
}

}  // namespace ZOV_SPACE
