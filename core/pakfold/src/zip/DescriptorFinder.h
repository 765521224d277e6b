// DescriptorFinder: the next data descriptor that has a signature, while a walk goes from entry to entry. Data can hold
// such bytes, too, so what is found is where the data may end, and what it may be, for somebody to try.
//
// It remembers where it has looked. What it looks through for nothing counts as tried in vain (ScanBudget). Borrows the
// buffer. Used by one thread at a time.
#ifndef PAKFOLD_ZIP_DESCRIPTORFINDER_H
#define PAKFOLD_ZIP_DESCRIPTORFINDER_H

#include <cstdint>
#include <optional>

#include "ContentBytes.h"
#include "zip/ZipDescriptor.h"

namespace ZOV_SPACE {

class DescriptorFinder {
public:
    explicit DescriptorFinder(BufferBase& buffer) : _bytes(buffer) {}

    // The first one behind `start`, if it agrees with the distance and stands close enough for data that is tried in
    // one go.
    std::optional<ZipDescriptor> behind(std::int64_t start);

private:
    std::optional<ZipDescriptor> findBehind(std::int64_t start);
    bool findSignature(std::int64_t end);

    ContentBytes _bytes;
    // From _from to _next no signature begins.
    std::int64_t _from = 0;
    std::int64_t _next = 0;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_DESCRIPTORFINDER_H
