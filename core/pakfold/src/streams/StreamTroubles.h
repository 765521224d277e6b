// What keeps compressed data from being decoded, in the words of exceptions and of what is told.
#ifndef PAKFOLD_STREAMS_STREAMTROUBLES_H
#define PAKFOLD_STREAMS_STREAMTROUBLES_H

#include <string>

#include "unarchiver/Pakfold.h"

namespace ZOV_SPACE::streamTroubles {

inline constexpr const char* kTooMuchMemory = "the data asks for more memory than is allowed";
inline constexpr const char* kUnexpectedEnd = "unexpected EOF";
inline constexpr const char* kWrongSum = "the check-sum of the unpacked data is wrong";

inline ArchiveTrouble of(const std::string& failure) {
    if (failure == kUnexpectedEnd) return ArchiveTrouble::truncated;
    if (failure == kTooMuchMemory) return ArchiveTrouble::spent;
    return failure == kWrongSum ? ArchiveTrouble::checkSum : ArchiveTrouble::damaged;
}

}  // namespace ZOV_SPACE::streamTroubles

#endif  // PAKFOLD_STREAMS_STREAMTROUBLES_H
