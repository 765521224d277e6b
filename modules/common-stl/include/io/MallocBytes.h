// MallocBytes: owns bytes that come from malloc, calloc or realloc.
#ifndef COMMON_STL_IO_MALLOCBYTES_H
#define COMMON_STL_IO_MALLOCBYTES_H

#include <cstdlib>
#include <memory>

namespace ZOV_SPACE {

struct FreeMalloced {
    void operator()(char* bytes) const { std::free(bytes); }
};

using MallocBytes = std::unique_ptr<char[], FreeMalloced>;

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_MALLOCBYTES_H
