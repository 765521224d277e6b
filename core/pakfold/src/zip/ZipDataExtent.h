// ZipDataExtent: how far an entry's data reaches, and finding that out where the header does not say it.
#ifndef PAKFOLD_ZIP_ZIPDATAEXTENT_H
#define PAKFOLD_ZIP_ZIPDATAEXTENT_H

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "io/BufferBase.h"
#include "io/OutputStream.h"
#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {

class DescriptorFinder;

struct ZipDataExtent {
    // Of content that was inflated to find its end, so much is kept, so that it need not be inflated again.
    static constexpr std::int64_t kMostKept = std::int64_t{8} << 20;
    // Bytes that may be looked ahead whatever is left of the budget, so that small entries can still be read.
    static constexpr std::int64_t kFreeLookAhead = std::int64_t{1} << 20;

    bool known = false;           // The sizes are the data's, not those of some entry before.
    std::int64_t packedSize = 0;  // Bytes.
    std::int64_t unpackedSize = 0;
    std::uint32_t checkSum = 0;        // As the data descriptor says it.
    std::string failure;               // Why the data ends there before its end was found; empty when all is well.
    std::int64_t inflated = 0;         // Bytes, to find the end; to be charged as far as nobody takes them.
    bool hasContent = false;           // Whether `content` is all of the unpacked data that can be had.
    std::vector<std::string> content;  // In pieces, unless
    std::unique_ptr<char[]> whole;     // it is here, `unpackedSize` bytes.

    // In pieces of one size, but for the last.
    void writeContent(OutputStream& out) const;
};

// The data begins at `start`. No search goes further than what is left of the scan's budget for work that comes to
// nothing, and one that would throws OutOfBudgetException "Out of budget". One that ends is charged only if no end was
// found; but see `inflated`.
ZipDataExtent findDeflatedExtent(BufferBase& buffer, long start, DescriptorFinder& descriptors);
// The end is where a data descriptor agrees with the distance from the start and, for a stored entry, with the data's
// checksum; without one, the end of the buffer.
ZipDataExtent findStoredExtent(BufferBase& buffer, long start);
// Without such a one, where the first descriptor agrees with the distance alone.
ZipDataExtent findStoredOrOddExtent(BufferBase& buffer, long start);
ZipDataExtent findForeignExtent(BufferBase& buffer, long start);  // For methods that nobody here can decode.

// What was inflated to find an entry's end costs as much of the budget as nobody takes of it.
class LookAheadCost {
public:
    explicit LookAheadCost(std::int64_t inflatedBytes) : _bytes(inflatedBytes) {}
    LookAheadCost(const LookAheadCost&) = delete;
    LookAheadCost& operator=(const LookAheadCost&) = delete;
    // Without a throw, since something else is being thrown if this has not been settled.
    ~LookAheadCost() { static_cast<void>(ScanBudget::takeDiscardedBytes(_bytes)); }

    void settle(std::int64_t takenBytes) {
        ScanBudget::chargeDiscardedBytes(std::max<std::int64_t>(std::exchange(_bytes, 0) - takenBytes, 0));
    }

private:
    std::int64_t _bytes;
};

// Where the next local header begins, from `start` on; -1 when there is none.
long findLocalHeader(BufferBase& buffer, long start);

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_ZIPDATAEXTENT_H
