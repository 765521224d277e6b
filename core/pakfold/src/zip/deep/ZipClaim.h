// ZipClaim: what one record, a local header or one of a directory, says of a member. Nothing of it has been checked.
//
// Positions and sizes are those of contents below 4 GiB; what a record says beyond that reads as the largest number.
#ifndef PAKFOLD_ZIP_DEEP_ZIPCLAIM_H
#define PAKFOLD_ZIP_DEEP_ZIPCLAIM_H

#include <algorithm>
#include <cstdint>
#include <limits>
#include <span>
#include <tuple>

#include "ByteOrder.h"
#include "zip/ZipConstants.h"
#include "zip/ZipSupport.h"

namespace ZOV_SPACE {

struct ZipClaim {
    static constexpr std::uint32_t kNotSaid = std::numeric_limits<std::uint32_t>::max();

    std::uint32_t headerStart = 0;
    std::uint32_t dataStart = 0;  // As the local header has it.
    std::uint32_t packedSize = 0;
    std::uint32_t unpackedSize = 0;
    std::uint32_t checkSum = 0;
    std::uint32_t time = 0;
    std::uint32_t nameStart = 0;  // In the buffer.
    std::uint16_t nameLength = 0;
    std::uint16_t method = 0;
    std::uint16_t flags = 0;
    bool isLocal = false;

    bool isEncrypted() const { return (flags & kEncrypted) != 0; }
    bool sizesFollow() const { return (flags & kSizesFollow) != 0; }
    // Whether it says where the data ends; some writers of streams put sizes into the header all the same. Stored data
    // that is larger than anything has been cut.
    bool hasSizes() const {
        if (packedSize == kNotSaid) return method == ZipConstants::STORED && !sizesFollow();
        return !(isLocal && sizesFollow() && packedSize == 0);
    }
    std::int64_t dataEnd() const { return std::int64_t{dataStart} + packedSize; }
    // Whether the same comes out.
    bool agreesWith(const ZipClaim& other) const {
        return method == other.method && isEncrypted() == other.isEncrypted() && packedSize == other.packedSize &&
               unpackedSize == other.unpackedSize && checkSum == other.checkSum;
    }

    // By what comes out.
    auto contentOrder() const { return std::tie(method, checkSum, packedSize, unpackedSize, nameLength); }

    // Takes a number that stands where ZIP64 keeps those that do not fit their field.
    static std::uint32_t clamped(std::uint64_t number) {
        return static_cast<std::uint32_t>(std::min<std::uint64_t>(number, kNotSaid));
    }
    // Takes from ZIP64's block what is all ones, in the order in which the block has it.
    template <class... Numbers>
    static void takeLarge(std::span<const unsigned char> extra, Numbers&... numbers) {
        std::span<const unsigned char> block = zip64Block(extra);
        const auto take = [&](std::uint32_t& number) {
            if (number != kNotSaid || block.size() < sizeof(std::uint64_t)) return;
            number = clamped(loadU64(block.data()));
            block = block.subspan(sizeof(std::uint64_t));
        };
        (take(numbers), ...);
    }

private:
    static constexpr unsigned kEncrypted = 0x0001, kSizesFollow = 0x0008;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_DEEP_ZIPCLAIM_H
