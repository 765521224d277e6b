// WholeInflate.h: deflated data (RFC 1951) decoded in one go, by libdeflate, which is about three times as fast as zlib
// and passes some data that zlib refuses: codes that stand for nothing, or that the format forbids. So only data counts
// whose size and check-sum come out as they were announced; whatever else there is to say of data is zlib's to say.
#ifndef PAKFOLD_ZIP_WHOLEINFLATE_H
#define PAKFOLD_ZIP_WHOLEINFLATE_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace ZOV_SPACE {

// What data is said to inflate to.
struct InflatedAs {
    std::int64_t size = 0;  // Bytes; 0 where nothing is said.
    std::uint32_t checkSum = 0;

    static constexpr std::int64_t kMostBytes = std::int64_t{16} << 20;  // That are decoded in one go,
    static constexpr std::int64_t kMostPacked = std::int64_t{8} << 20;  // and of how many.

    // Whether data of that size may be tried: while it is decoded nothing looks whether the scan is to end.
    bool isTried(std::int64_t packedSize) const;
};

// Fills the space, which is as large as is announced, and returns how many bytes of `packed` the data takes. 0 when it
// does not come out just so; then what is in the space means nothing. Any thread.
std::size_t inflateWhole(std::span<const char> packed, std::span<char> space, std::uint32_t checkSum);

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_WHOLEINFLATE_H
