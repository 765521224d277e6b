#include "io/BufferBase.h"

namespace ZOV_SPACE {

BufferBase::~BufferBase() = default;

long BufferBase::getSize() const { return _loadSize(); }
bool BufferBase::isValid() const { return _valid; }
void BufferBase::discardUsedBuffer() { _discarded = true; }
char* BufferBase::getMemAddress() { return nullptr; }
int BufferBase::getFileDescriptor() { return -1; }
int BufferBase::getType() { return _type; }
std::span<const char> BufferBase::view(long) { return {}; }

}  // namespace ZOV_SPACE
