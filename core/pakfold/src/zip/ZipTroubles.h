// What the walks over ZIP archives tell of members that are not seen.
#ifndef PAKFOLD_ZIP_ZIPTROUBLES_H
#define PAKFOLD_ZIP_ZIPTROUBLES_H

#include <cstdint>
#include <string>

#include "streams/StreamTroubles.h"
#include "unarchiver/Pakfold.h"
#include "zip/DeflateDecompressor.h"

namespace ZOV_SPACE::zipTroubles {

inline constexpr const char* kEncrypted = "encrypted ZIP entry";
inline constexpr const char* kTooMuchMemory = streamTroubles::kTooMuchMemory;
inline constexpr const char* kCut = "the archive ends inside the data";

// By the text of what ended an entry.
inline ArchiveTrouble of(const std::string& failure) {
    if (failure == kEncrypted) return ArchiveTrouble::encrypted;
    if (failure == streamTroubles::kUnexpectedEnd || failure == kCut || DeflateDecompressor::saysTooShort(failure))
        return ArchiveTrouble::truncated;
    if (failure == kTooMuchMemory) return ArchiveTrouble::spent;
    const bool isMethod = failure.starts_with("Unknown algorithm") || failure.ends_with("unimplemented");
    return isMethod ? ArchiveTrouble::unknownMethod : ArchiveTrouble::damaged;
}

inline std::string left(std::int64_t bytes) {
    return std::to_string(bytes) + " bytes are left behind the deflated data";
}

inline std::string otherSize(std::int64_t announced, std::int64_t unpacked) {
    return std::to_string(announced) + " bytes were announced, " + std::to_string(unpacked) + " were unpacked";
}

inline std::string missed(std::int64_t entries) {
    return std::to_string(entries) + " entries that the directory counts were not met";
}

}  // namespace ZOV_SPACE::zipTroubles

#endif  // PAKFOLD_ZIP_ZIPTROUBLES_H
