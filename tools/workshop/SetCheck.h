// SetCheck.h: looks for what is wrong, or not what its author may think, in the files of a set of signatures: pattern
// files, the options file and the lists. What the engine's loader makes of a line decides.
//
// Remarks come in the order of lines, file by file: pattern files, options files, lists; a remark on a whole file comes
// where that is known. Those on records that others repeat come behind all of them, in the order of the older records:
// of MD5 records, then of check-sums. No remark waits for others, so the number of these takes no memory, except that
// of repeated records: 8 bytes each, of check-sums 48.
#ifndef VOLE_WORKSHOP_SET_CHECK_H
#define VOLE_WORKSHOP_SET_CHECK_H

#include <cstdint>
#include <string>
#include <vector>

#include "Remark.h"

struct CheckOptions {
    std::vector<std::string> paths;  // Folders and files, which are one set together.
    std::string names;               // Shell pattern that names have to fit; empty: any.
};

struct CheckTally {
    std::uint64_t files = 0;
    std::uint64_t records = 0;  // That a load would have.
    std::uint64_t errors = 0;   // Remarks: a line is dropped, or changed, or a file cannot be used.
    std::uint64_t warnings = 0;
};

// Throws LoadError for a path that is nothing to be checked, std::bad_alloc, and what `take` throws.
CheckTally checkSet(const CheckOptions& options, const TakeRemark& take);

#endif  // VOLE_WORKSHOP_SET_CHECK_H
