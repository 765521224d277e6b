// RarWindow: memory for a dictionary.
#ifndef PAKFOLD_RAR_RARWINDOW_H
#define PAKFOLD_RAR_RARWINDOW_H

#include <cstdint>

#include "io/MallocBytes.h"

namespace ZOV_SPACE {

// Memory for a dictionary: a ring of bytes that are zero until they are written. Since clearing costs by what was
// written, one window serves a walk over many small entries.
class RarWindow {
public:
    RarWindow() = default;
    explicit RarWindow(std::uint32_t size);  // Throws OutOfMemoryException "Out of memory".

    unsigned char* bytes() const { return reinterpret_cast<unsigned char*>(_bytes.get()); }
    std::uint32_t size() const { return _size; }
    // Says that nothing at or behind `end` was written, beyond what was said before.
    void wroteTo(std::uint32_t end) { _reach = end > _reach ? end : _reach; }
    void clear();

private:
    MallocBytes _bytes;
    std::uint32_t _size = 0;
    std::uint32_t _reach = 0;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_RARWINDOW_H
