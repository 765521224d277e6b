// ZipCoverage: whether a walk by the local headers met all that an archive's directory tells of. A source may hold
// several archives, one behind the other or one within a damaged entry of the other, each with a directory of its own.
// Used by one thread at a time.
#ifndef PAKFOLD_ZIP_ZIPCOVERAGE_H
#define PAKFOLD_ZIP_ZIPCOVERAGE_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "zip/ZipInfo.h"

namespace ZOV_SPACE {

class ZipCoverage {
public:
    // An entry, by the position of its local header. REQUIRES: positions ascend.
    void meet(std::int64_t headerStart) { _met.push_back(headerStart); }
    void takeBack() { _met.pop_back(); }  // The last one was none.

    // A directory, of which `info` has what could be read. `start` is the position of its first record. Entries that
    // were met before an earlier directory do not count any more where only numbers can be compared.
    void compare(const ZipInfo& info, std::int64_t start, bool hasEnd);

    bool hasEnd() const { return _hasEnd; }          // An end record was among them.
    bool isComplete() const { return _isComplete; }  // The latest directory tells of nothing that was not met.
    std::int64_t missed() const { return _missed; }  // Entries of one directory, at most.
    bool spansVolumes() const { return _spansVolumes; }

private:
    bool wasMet(std::int64_t headerStart) const;

    std::vector<std::int64_t> _met;
    std::size_t _metBefore = 0;  // The latest directory.
    bool _hasEnd = false;
    bool _isComplete = false;
    bool _spansVolumes = false;
    std::int64_t _missed = 0;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_ZIPCOVERAGE_H
