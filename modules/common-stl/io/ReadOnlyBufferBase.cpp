#include "io/ReadOnlyBufferBase.h"

#include "Raise.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"io/ReadOnlyBufferBase"};

[[noreturn]] void refuse() { kUnit.raise<IOException>("Read-only BufferBase"); }

}  // namespace

ReadOnlyBufferBase::~ReadOnlyBufferBase() = default;

int ReadOnlyBufferBase::write(long, char) { refuse(); }
int ReadOnlyBufferBase::write(long, const char*, int) { refuse(); }
int ReadOnlyBufferBase::insert(long, char) { refuse(); }
int ReadOnlyBufferBase::insert(long, const char*, int) { refuse(); }
int ReadOnlyBufferBase::cut(long) { refuse(); }
int ReadOnlyBufferBase::cut(long, int) { refuse(); }
int ReadOnlyBufferBase::append(char) { refuse(); }
int ReadOnlyBufferBase::append(const char*, int) { refuse(); }
int ReadOnlyBufferBase::truncate(long) { refuse(); }

}  // namespace ZOV_SPACE
