// What the sources of the ZIP code share.
#ifndef PAKFOLD_ZIP_ZIPSUPPORT_H
#define PAKFOLD_ZIP_ZIPSUPPORT_H

#include <cstdint>

#include "Raise.h"
#include "zip/ZipConstants.h"

namespace ZOV_SPACE {

// The source unit that exceptions and diagnostics name.
inline constexpr const char* kZipUnitName = "../../core/pakfold/src/unarchiver/Zip";
inline constexpr ThrowUnit kZipUnit{kZipUnitName};

// Whether a record begins so that can follow an entry's data.
inline bool startsRecord(std::uint32_t signature) {
    return signature == ZipConstants::LOCSIG || signature == ZipConstants::CENSIG || signature == ZipConstants::ENDSIG;
}

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_ZIPSUPPORT_H
