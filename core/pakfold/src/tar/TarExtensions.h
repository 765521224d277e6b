// TarExtensions: what records in front of an entry's header say of it: names that do not fit there, large sizes, where
// the holes of a sparse file are.
#ifndef PAKFOLD_TAR_TAREXTENSIONS_H
#define PAKFOLD_TAR_TAREXTENSIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tar/TarSparse.h"

namespace ZOV_SPACE {

struct TarExtensions {
    static constexpr std::size_t kMostBytes = std::size_t{1} << 20;  // That are read of one record.

    std::optional<std::string> name;
    std::optional<std::int64_t> size;        // Of the data in the archive.
    std::optional<std::int64_t> sparseSize;  // Of the file with its holes.
    std::optional<TarSparseMap> sparseMap;
    bool hasMapInData = false;  // In front of the data stands the map.

    // Reads the "length key=value" lines of a pax header, up to one that makes no sense. False when there is one.
    bool readPax(std::string_view lines);

private:
    void take(std::string_view key, std::string_view value);
    void addToMap(std::optional<std::int64_t> number, bool isOffset);
};

// A decimal number that fits; nothing for all else.
std::optional<std::int64_t> decimal(std::string_view digits);

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_TAR_TAREXTENSIONS_H
