// ZipDescriptor: the record behind an entry's data that says what its writer could not say in the local header, because
// it wrote a stream (APPNOTE.TXT, "Data descriptor"):
//
//     signature   4 bytes, optional
//     checksum    4
//     packed      4 or 8
//     unpacked    4 or 8
//
// Nothing says reliably which of the four forms it has: writers announce sizes of 8 bytes and write 4, or the other way
// round. What decides is where the next record begins. This is the only place that decides it, whether the walk stands
// behind the data or the data's end is still being searched for.
#ifndef PAKFOLD_ZIP_ZIPDESCRIPTOR_H
#define PAKFOLD_ZIP_ZIPDESCRIPTOR_H

#include <cstdint>
#include <optional>

namespace ZOV_SPACE {

struct ZipDescriptor {
    static constexpr int kLookAhead = 28;  // Bytes: the longest descriptor, and the signature behind it.

    // Reads kLookAhead bytes; those behind the end of the data are to be 0. Nothing when a record of another kind
    // begins there.
    static std::optional<ZipDescriptor> read(const char* bytes);

    std::uint32_t checkSum;
    std::uint32_t packedSize;  // Bytes; of sizes of 8 bytes, the low halves.
    std::uint32_t unpackedSize;
    int length;      // Of the descriptor, in bytes.
    bool isEvident;  // It has a signature or is followed by a record; otherwise it could be any bytes.
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_ZIPDESCRIPTOR_H
