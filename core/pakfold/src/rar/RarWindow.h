// RarWindow: memory for a dictionary.
#ifndef PAKFOLD_RAR_RARWINDOW_H
#define PAKFOLD_RAR_RARWINDOW_H

#include <algorithm>
#include <cstdint>

#include "io/MallocBytes.h"

namespace ZOV_SPACE {

// Memory for a dictionary: a ring of bytes that are zero until they are written. Since clearing costs by what was
// written, one window serves a walk over many small entries.
//
// The ring is larger than the dictionary, so that a copy may write some bytes more than it has to: what these replace
// is too far away to be referred to.
class RarWindow {
public:
    static constexpr std::uint32_t kOverrun = 32;

    RarWindow() = default;
    explicit RarWindow(std::uint32_t size);  // Throws OutOfMemoryException "Out of memory".

    unsigned char* bytes() const { return reinterpret_cast<unsigned char*>(_bytes.get()); }
    std::uint32_t size() const { return _size; }  // Of the dictionary.
    // Where the ring closes. Behind it, kOverrun bytes may be read, which mean nothing.
    std::uint32_t ringSize() const { return _size + kOverrun; }
    // Says that nothing at or behind `end` was written, beyond what was said before and what copies overran.
    void wroteTo(std::uint32_t end) { _reach = std::max(_reach, std::min(end + kOverrun, ringSize())); }
    void clear();

private:
    MallocBytes _bytes;
    std::uint32_t _size = 0;
    std::uint32_t _reach = 0;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_RARWINDOW_H
