// ZipReading: one way to read a member's data, and what came of it. Two records that agree on how the data is read are
// one reading, whatever else they say.
#ifndef PAKFOLD_ZIP_DEEP_ZIPREADING_H
#define PAKFOLD_ZIP_DEEP_ZIPREADING_H

#include <compare>
#include <cstdint>
#include <string>

#include "ContentBytes.h"
#include "zip/ZipDataExtent.h"
#include "zip/deep/ZipClaim.h"

namespace ZOV_SPACE {

class ArchiveEntryProcessor;

struct ZipReading {
    std::uint32_t start;  // Of the data.
    std::uint32_t packedSize;
    std::uint32_t keptSize;  // Of what is unpacked, kNotSaid for all of it: some readers stop at the announced size.
    std::uint16_t method;

    static ZipReading of(const ZipClaim& claim) {
        return {claim.dataStart, claim.packedSize, ZipClaim::kNotSaid, claim.method};
    }
    std::int64_t end() const { return std::int64_t{start} + packedSize; }
    std::strong_ordering operator<=>(const ZipReading&) const = default;
};

struct ZipOutcome {
    std::int64_t dataEnd = 0;  // Where the packed data turned out to end.
    std::int64_t unpackedSize = 0;
    std::uint32_t checkSum = 0;  // Counted for quiet readings only.
    bool isTaken = false;        // Otherwise nobody wanted it.
    std::string failure;         // Why not all of it was decoded.

    bool isWhole() const { return failure.empty(); }
    bool fits(const ZipClaim& claim) const {
        return isWhole() && (!isTaken || (unpackedSize == claim.unpackedSize && checkSum == claim.checkSum));
    }
};

// Offers readings to the processor, and decodes those that it takes.
class ZipReader {
public:
    // Both are borrowed.
    ZipReader(ContentBytes& bytes, ArchiveEntryProcessor& entries) : _bytes(bytes), _entries(entries) {}

    // The only reading of a member: tells what is wrong with it. A failure is left to the caller. `measured`: how far
    // the data reaches, where the claim does not say it; else null. Throws ArchivingException "Archiving aborted",
    // OutOfBudgetException, OutOfMemoryException and what the processor throws.
    ZipOutcome read(const ZipClaim& claim, const std::string& name, const ZipReading& reading,
                    const ZipDataExtent* measured);
    // One of several, of which it is not known yet which is right: tells nothing.
    ZipOutcome readQuietly(const ZipClaim& claim, const std::string& name, const ZipReading& reading);

private:
    class Offer;

    ContentBytes& _bytes;
    ArchiveEntryProcessor& _entries;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_DEEP_ZIPREADING_H
