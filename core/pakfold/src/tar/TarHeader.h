// TarHeader: one header record of a tar archive, of any of the format's generations.
#ifndef PAKFOLD_TAR_TARHEADER_H
#define PAKFOLD_TAR_TARHEADER_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace ZOV_SPACE {

struct TarHeader {
    static constexpr std::size_t kRecord = 512;  // Bytes; everything in an archive begins at a multiple of it.

    std::string name;
    char type = '0';
    std::int64_t size = 0;  // Of the data that follows; the largest number for all that do not fit.

    // Nothing when the record's check-sum is wrong, or its size below 0. REQUIRES: a whole record.
    static std::optional<TarHeader> read(std::span<const char> record);
    // Whether it is marked as a header, be it a sound one or not.
    static bool isMarked(std::span<const char> record);
    static bool isZero(std::span<const char> record);
    // A field with a number in octal digits, or in binary; below 0 when that is, 0 where there is none.
    static std::int64_t number(std::span<const char> field);

    // An entry that has no data by its type; some writers give one a size all the same.
    bool isWithoutData() const;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_TAR_TARHEADER_H
