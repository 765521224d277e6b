#include "zip/WholeInflate.h"

#ifdef VOLE_WITH_LIBDEFLATE
#include <libdeflate.h>

#include <memory>

#include "utils/Crc.h"
#endif

namespace ZOV_SPACE {

#ifdef VOLE_WITH_LIBDEFLATE

namespace {

struct Release {
    void operator()(libdeflate_decompressor* state) const { ::libdeflate_free_decompressor(state); }
};

// It keeps its tables for the format's fixed codes from one call to the next. Null when memory ran out.
libdeflate_decompressor* stateOfThread() {
    thread_local std::unique_ptr<libdeflate_decompressor, Release> state;
    if (!state) state.reset(::libdeflate_alloc_decompressor());
    return state.get();
}

}  // namespace

bool InflatedAs::isTried(std::int64_t packedSize) const {
    return size > 0 && size <= kMostBytes && packedSize > 0 && packedSize <= kMostPacked;
}

std::size_t inflateWhole(std::span<const char> packed, std::span<char> space, std::uint32_t checkSum) {
    libdeflate_decompressor* const state = stateOfThread();
    if (!state) return 0;
    std::size_t used = 0;
    // Without a place for the size, it fails unless the space is just filled.
    const auto result = ::libdeflate_deflate_decompress_ex(state, packed.data(), packed.size(), space.data(),
                                                           space.size(), &used, nullptr);
    if (result != LIBDEFLATE_SUCCESS) return 0;
    Iso3309Crc sum;
    return sum.add(space.data(), static_cast<unsigned>(space.size())) == checkSum ? used : 0;
}

#else

bool InflatedAs::isTried(std::int64_t) const { return false; }

std::size_t inflateWhole(std::span<const char>, std::span<char>, std::uint32_t) { return 0; }

#endif

}  // namespace ZOV_SPACE
