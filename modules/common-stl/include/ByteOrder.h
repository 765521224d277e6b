// ByteOrder.h: little-endian fields at any address. Going through memcpy keeps unaligned access and aliasing defined;
// compilers turn each into a single load or store.
#ifndef COMMON_STL_BYTEORDER_H
#define COMMON_STL_BYTEORDER_H

#include <bit>
#include <cstdint>
#include <cstring>

namespace ZOV_SPACE {

static_assert(std::endian::native == std::endian::little, "file fields are little-endian and stored without a swap");

template <class T>
T loadLittleEndian(const void* address) {
    T value;
    std::memcpy(&value, address, sizeof value);
    return value;
}

inline std::uint16_t loadU16(const void* address) { return loadLittleEndian<std::uint16_t>(address); }
inline std::uint32_t loadU32(const void* address) { return loadLittleEndian<std::uint32_t>(address); }
inline std::uint64_t loadU64(const void* address) { return loadLittleEndian<std::uint64_t>(address); }

template <class T>
void storeLittleEndian(void* address, T value) {
    std::memcpy(address, &value, sizeof value);
}

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_BYTEORDER_H
