// What the sources of the ZIP code share.
#ifndef PAKFOLD_ZIP_ZIPSUPPORT_H
#define PAKFOLD_ZIP_ZIPSUPPORT_H

#include <cstdint>
#include <span>

#include "ByteOrder.h"
#include "Raise.h"
#include "zip/ZipConstants.h"

namespace ZOV_SPACE {

// The source unit that exceptions and diagnostics name.
inline constexpr const char* kZipUnitName = "../../core/pakfold/src/unarchiver/Zip";
inline constexpr ThrowUnit kZipUnit{kZipUnitName};

inline constexpr std::uint32_t kArchiveExtraData = 0x08064B50;  // In front of an encrypted directory.
inline constexpr std::uint32_t kZip64End = 0x06064B50;

// The content of an extra field's ZIP64 block; empty when it has none.
inline std::span<const unsigned char> zip64Block(std::span<const unsigned char> extra) {
    constexpr unsigned kZip64FieldId = 0x0001;
    while (extra.size() >= 4) {
        const unsigned id = loadU16(extra.data());
        const std::size_t length = loadU16(extra.data() + 2);
        extra = extra.subspan(4);
        if (length > extra.size()) break;
        if (id == kZip64FieldId) return extra.first(length);
        extra = extra.subspan(length);
    }
    return {};
}

// Whether a record begins so that can follow the last entry: one of the directory, or one of those in front of it that
// nothing here reads.
inline bool startsDirectory(std::uint32_t signature) {
    return signature == ZipConstants::CENSIG || signature == ZipConstants::ENDSIG || signature == kArchiveExtraData ||
           signature == kZip64End;
}

// Whether a record begins so that can follow an entry's data.
inline bool startsRecord(std::uint32_t signature) {
    return signature == ZipConstants::LOCSIG || startsDirectory(signature);
}

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_ZIPSUPPORT_H
