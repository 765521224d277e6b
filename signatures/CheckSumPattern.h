// CheckSumPattern: one checksum ("chk-sum") signature.
#ifndef SIGNATURES_CHECKSUMPATTERN_H
#define SIGNATURES_CHECKSUMPATTERN_H

#include <cstddef>
#include <cstdint>

// What kind of file a record is for. Records of the targets 1, 2 and 4 to 8 are accepted and never matched.
using TARGET_TYPE = unsigned int;
constexpr TARGET_TYPE kTargetAny = 0;  // Any file that is not a PE executable.
constexpr TARGET_TYPE kTargetPe = 3;   // A PE executable.
constexpr std::size_t kTargetCount = 9;

// Where a record's two offsets count from.
enum ChkOffsetType : std::uint8_t {
    kFromStart = 0,
    kFromEnd = 1,         // Backwards.
    kFromEntryPoint = 2,  // The file position of the PE entry point.
    kFromSection = 3,     // The file position of the PE section with the number `offsetParameter`.
    kOffsetTypeCount,
};

struct CheckSumFields {
    std::uint32_t checkString = 0;  // The four bytes at offset 1, and the CRC-32 values of the two ranges; each read
    std::uint32_t checkSum1 = 0;    // little-endian from the four bytes that the record's text names.
    std::uint32_t checkSum2 = 0;
    std::int16_t offset1 = 0;  // Bytes, signed.
    std::int16_t offset2 = 0;
    std::uint8_t length1 = 0;  // Bytes.
    std::uint8_t length2 = 0;
    std::uint8_t target = 0;
    std::uint8_t offsetType = 0;  // A ChkOffsetType once the record is in a list.
    std::uint8_t offsetParameter = 0;
    std::uint8_t unused[3] = {};
};

// One that is to go into a list, which copies the name, or that was taken out of one, which owns it.
struct CheckSumPattern : CheckSumFields {
    const char* name = "";
};

// One in a list: with the name's number.
struct CheckSumRecord : CheckSumFields {
    std::uint32_t name = 0;
};
static_assert(sizeof(CheckSumRecord) == 28, "files have it so");

#endif  // SIGNATURES_CHECKSUMPATTERN_H
