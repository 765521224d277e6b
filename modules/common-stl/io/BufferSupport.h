// BufferSupport.h: what the storages share: their checks.
#ifndef COMMON_STL_IO_BUFFERSUPPORT_H
#define COMMON_STL_IO_BUFFERSUPPORT_H

#include <limits>

#include "Mutex.h"
#include "Raise.h"

namespace ZOV_SPACE {

// The unit names that messages carry: checks that belong to the header, and everything else.
inline constexpr ThrowUnit kBufferUnit{"io/BufferBase"};
inline constexpr ThrowUnit kBufferHeaderUnit{"../../../modules/common-stl/include/io/BufferBase"};

inline constexpr long kLargestPosition = std::numeric_limits<long>::max();

inline void requireValid(bool valid) {
    if (!valid) kBufferUnit.raise<IOException>("Broken BufferBase");
}

inline void requireUsable(bool valid, long pos) {
    requireValid(valid);
    if (pos < 0) kBufferUnit.raise<IOException>("Index out of bound");
}

// That `n` bytes from `pos` on have positions. REQUIRES: both are 0 or more.
inline void requireFits(long pos, long n) {
    if (n > kLargestPosition - pos) kBufferUnit.raise<IOException>("Index out of bound");
}

inline void requireStreamOpen(bool closed) {
    if (closed) kBufferHeaderUnit.raise<IOException>("Stream is already closed");
}

// Bulk operations do nothing with these.
inline bool nothingToDo(const char* buf, int n) { return buf == nullptr || n < 1; }

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_BUFFERSUPPORT_H
