// StructSize.h: structures that a host hands in, which begin with their own size, so that they may be those of an
// earlier or a later version of the interface.
#ifndef ENGINE_CAPI_STRUCTSIZE_H
#define ENGINE_CAPI_STRUCTSIZE_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>
#include <type_traits>

namespace capi {

// No structure will ever be larger; a size beyond this is no size.
constexpr std::size_t kLargestStruct = 4096;

// Reads `given`, which may be null, over the defaults: fields that an earlier version lacks keep theirs. Nothing when
// the structure makes no sense, or when a later version has something set that this one does not know.
template <class Struct>
std::optional<Struct> fromHost(const Struct* given, Struct defaults) {
    static_assert(std::is_trivially_copyable_v<Struct> && offsetof(Struct, struct_size) == 0);
    if (!given) return defaults;
    std::size_t size;
    std::memcpy(&size, given, sizeof size);
    if (size < sizeof size || size > kLargestStruct) return std::nullopt;
    const auto* const bytes = reinterpret_cast<const unsigned char*>(given);
    const auto isSet = [](unsigned char byte) { return byte != 0; };
    if (size > sizeof(Struct) && std::any_of(bytes + sizeof(Struct), bytes + size, isSet)) return std::nullopt;
    std::memcpy(&defaults, bytes, std::min(size, sizeof(Struct)));
    defaults.struct_size = sizeof(Struct);
    return defaults;
}

}  // namespace capi

#endif  // ENGINE_CAPI_STRUCTSIZE_H
