// Forwards to the storage that the policy chose. In the policies with a choice, content starts in memory unless it is
// announced as larger than the barrier, and moves to a file at the first checking operation after it has passed it. The
// move copies piece by piece what the memory shows, flushes, and only then lets go of the memory: when the disk is
// full, the buffer stays as it was and the next checking operation tries again. It never moves back.
#include "io/SmartBufferBase.h"

#include <algorithm>
#include <utility>

#include "BufferSupport.h"
#include "io/ContinuousMemBufferBase.h"
#include "io/FileBufferBase.h"
#include "io/FileViewBufferBase.h"
#include "io/MemBufferBase.h"

namespace ZOV_SPACE {

namespace {

constexpr long kMoveBytes = 1L << 30;  // Keeps a piece's size in an int.

}  // namespace

BufferBasePolicy SmartBufferBase::_policy = kMemoryOrFilePolicy;
long SmartBufferBase::_barrier = 1048576;
std::string SmartBufferBase::_basePath;

SmartBufferBase::SmartBufferBase() { _init(0, _policy); }
SmartBufferBase::SmartBufferBase(BufferBasePolicy policy) { _init(0, policy); }
SmartBufferBase::SmartBufferBase(long size) { _init(size, _policy); }
SmartBufferBase::SmartBufferBase(long size, BufferBasePolicy policy) { _init(size, policy); }

SmartBufferBase::SmartBufferBase(long size, BufferBasePolicy policy, long barrier) : _ownBarrier(barrier) {
    _init(size, policy);
}

SmartBufferBase::SmartBufferBase(std::unique_ptr<BufferBase> inner) : _inner(std::move(inner)) { _type = kTypeSmart; }

SmartBufferBase::~SmartBufferBase() = default;

std::unique_ptr<SmartBufferBase> SmartBufferBase::viewOf(int fd, long size) {
    return std::unique_ptr<SmartBufferBase>(new SmartBufferBase(std::make_unique<FileViewBufferBase>(fd, size)));
}

void SmartBufferBase::_init(long size, BufferBasePolicy policy) {
    _type = kTypeSmart;
    _inner.reset();
    const bool mayMove = policy == kMemoryOrFilePolicy || policy == kContinuousOrFilePolicy;
    _switchable = mayMove && size <= _currentBarrier();
    if (mayMove && !_switchable) {
        _inner = std::make_unique<FileBufferBase>();
    } else if (policy == kMemoryPolicy || policy == kMemoryOrFilePolicy) {
        _inner = std::make_unique<MemBufferBase>(size);
    } else if (policy == kContinuousPolicy || policy == kContinuousOrFilePolicy) {
        _inner = std::make_unique<ContinuousMemBufferBase>(size);
    } else if (policy == kFilePolicy) {
        _inner = std::make_unique<FileBufferBase>(_basePath.c_str());
    }
}

BufferBase& SmartBufferBase::_storage() const {
    requireValid(_inner != nullptr);
    return *_inner;
}

void SmartBufferBase::_checkBarrier() {
    if (!_switchable || _discarded || _inner->getSize() <= _currentBarrier()) return;
    auto file = std::make_unique<FileBufferBase>();
    if (!file->isValid()) kBufferUnit.raise<OutOfMemoryException>("Out of memory");
    for (long pos = 0; pos < _inner->getSize();) {
        const std::span<const char> piece = _inner->view(pos);
        const long count = std::min(static_cast<long>(piece.size()), kMoveBytes);
        file->append(piece.data(), static_cast<int>(count));
        pos += count;
    }
    file->flush();  // While the memory is still there: the disk may be full.
    _inner = std::move(file);
    _switchable = false;
}

void SmartBufferBase::useSharedBarrier() {
    _ownBarrier = -1;
    _checkBarrier();
    releaseSpare();
}

int SmartBufferBase::read(long pos) { return _storage().read(pos); }
int SmartBufferBase::read(long pos, char* buf, int n) { return _storage().read(pos, buf, n); }

int SmartBufferBase::write(long pos, char c) {
    _checkBarrier();
    return _storage().write(pos, c);
}

int SmartBufferBase::write(long pos, const char* buf, int n) {
    _checkBarrier();
    return _storage().write(pos, buf, n);
}

int SmartBufferBase::insert(long pos, char c) {
    _checkBarrier();
    return _storage().insert(pos, c);
}

int SmartBufferBase::insert(long pos, const char* buf, int n) {
    _checkBarrier();
    return _storage().insert(pos, buf, n);
}

// Kept as is: the one-byte cut does not check the barrier.
int SmartBufferBase::cut(long pos) { return _storage().cut(pos); }

int SmartBufferBase::cut(long pos, int n) {
    _checkBarrier();
    return _storage().cut(pos, n);
}

int SmartBufferBase::append(char c) {
    _checkBarrier();
    return _storage().append(c);
}

// Kept as is: a bulk append does not check the barrier.
int SmartBufferBase::append(const char* buf, int n) { return _storage().append(buf, n); }

int SmartBufferBase::truncate(long len) { return _storage().truncate(len); }

long SmartBufferBase::getSize() const { return _inner ? _inner->getSize() : 0; }
bool SmartBufferBase::isValid() const { return _inner && _inner->isValid(); }

void SmartBufferBase::discardUsedBuffer() {
    _discarded = true;
    if (_inner) _inner->discardUsedBuffer();
}

char* SmartBufferBase::getMemAddress() { return _inner ? _inner->getMemAddress() : nullptr; }
int SmartBufferBase::getFileDescriptor() { return _inner ? _inner->getFileDescriptor() : -1; }

std::span<const char> SmartBufferBase::view(long pos) { return _inner ? _inner->view(pos) : std::span<const char>{}; }

std::span<char> SmartBufferBase::appendSpace(long n) { return _storage().appendSpace(n); }
void SmartBufferBase::commitAppend(long n) { _storage().commitAppend(n); }

void SmartBufferBase::releaseSpare() {
    if (_inner) _inner->releaseSpare();
}

bool SmartBufferBase::sourceFailed() const { return _inner && _inner->sourceFailed(); }

}  // namespace ZOV_SPACE
