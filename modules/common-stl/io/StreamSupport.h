// StreamSupport.h: what the streams share: the unit names that callers read, and their checks.
#ifndef COMMON_STL_IO_STREAMSUPPORT_H
#define COMMON_STL_IO_STREAMSUPPORT_H

#include <memory>
#include <new>

#include "Raise.h"

namespace ZOV_SPACE {

// Checks that belong to a header carry its name, everything else the source's.
inline constexpr ThrowUnit kInputUnit{"io/InputStream"};
inline constexpr ThrowUnit kInputHeaderUnit{"../../../modules/common-stl/include/io/InputStream"};
inline constexpr ThrowUnit kOutputUnit{"io/OutputStream"};
inline constexpr ThrowUnit kOutputHeaderUnit{"../../../modules/common-stl/include/io/OutputStream"};

inline void requireOpen(bool closed, const ThrowUnit& headerUnit) {
    if (closed) headerUnit.raise<IOException>("Stream is already closed");
}

inline std::unique_ptr<char[]> allocateBlock(int bytes, const ThrowUnit& unit) {
    std::unique_ptr<char[]> block(new (std::nothrow) char[static_cast<std::size_t>(bytes)]);
    if (!block) unit.raise<OutOfMemoryException>("Out of memory");
    return block;
}

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_STREAMSUPPORT_H
