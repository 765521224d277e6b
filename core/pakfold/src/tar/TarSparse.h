// TarSparseMap: where in a sparse file the bytes go that an archive has of it.
#ifndef PAKFOLD_TAR_TARSPARSE_H
#define PAKFOLD_TAR_TARSPARSE_H

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "ContentBytes.h"
#include "io/BufferBase.h"
#include "io/OutputStream.h"

namespace ZOV_SPACE {

class TarSparseMap {
public:
    // What one header record, and each record behind it, of the older format has room for.
    static constexpr std::size_t kInHeader = 4, kInRecord = 21;

    // Numbers in decimal, each with the separator behind it but for the last: offset and size by turns.
    static TarSparseMap parse(std::string_view numbers, char separator);
    // The map that stands in front of the data, a number a line, the first of which counts the pieces. Moves
    // `position` behind it, to the next record.
    static TarSparseMap readFromData(ContentBytes& bytes, std::int64_t& position, std::int64_t end);

    void add(std::int64_t offset, std::int64_t size) { _pieces.push_back({offset, size}); }
    void setLastSize(std::int64_t size);
    // So many pairs of fields of the older format, each of 12 bytes, up to an empty one.
    void addFields(std::span<const char> fields, std::size_t count);

    // Whether the pieces stand one behind the other, within a file of this size, and come to that much data.
    bool fits(std::int64_t fileSize, std::int64_t dataSize) const;
    // Writes the file: the data, which begins at `start`, with zero bytes between its pieces. REQUIRES: fits().
    void expand(BufferBase& buffer, std::int64_t start, std::int64_t fileSize, OutputStream& out) const;

private:
    struct Piece {
        std::int64_t offset, size;  // Below 0 for what is no number.
    };
    std::vector<Piece> _pieces;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_TAR_TARSPARSE_H
