#include "io/BufferBase.h"

#include "BufferSupport.h"

namespace ZOV_SPACE {

BufferBase::~BufferBase() = default;

long BufferBase::getSize() const { return _loadSize(); }
bool BufferBase::isValid() const { return _valid; }
void BufferBase::discardUsedBuffer() { _discarded = true; }
char* BufferBase::getMemAddress() { return nullptr; }
int BufferBase::getFileDescriptor() { return -1; }
int BufferBase::getType() { return _type; }
std::span<const char> BufferBase::view(long) { return {}; }
std::span<char> BufferBase::appendSpace(long) { return {}; }
void BufferBase::releaseSpare() {}
bool BufferBase::sourceFailed() const { return false; }

void BufferBase::commitAppend(long n) {
    if (n > 0) kBufferUnit.raise<IOException>("Index out of bound");
}

}  // namespace ZOV_SPACE
