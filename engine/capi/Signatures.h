// Signatures.h: what is behind the handle vole_signatures.
#ifndef ENGINE_CAPI_SIGNATURES_H
#define ENGINE_CAPI_SIGNATURES_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "FalseAlarms.h"
#include "MappedFile.h"
#include "PatternContainer.h"
#include "vole.h"

namespace isolation {
class SetImage;
}

// A set: filled by one thread before anybody else knows of it, then the same for ever and shared by any number. Deleted
// by whoever gives the last reference back.
struct vole_signatures {
    MappedFile file;  // Of a compiled set, which the others refer to.
    PatternContainer patterns;
    FalseAlarms falseAlarms;
    std::string id;
    std::uint64_t memoryBytes = 0;
    std::atomic<std::size_t> references{1};
    // For workers in other processes, while there are any; made by the first.
    mutable std::mutex imageMutex;
    mutable std::weak_ptr<const isolation::SetImage> image;
};

#endif  // ENGINE_CAPI_SIGNATURES_H
