// SetDiff.h: what one set of signatures has and another has not.
//   Memory: 40 bytes for each record of both.
#ifndef VOLE_WORKSHOP_SET_DIFF_H
#define VOLE_WORKSHOP_SET_DIFF_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

struct SetChange {
    enum class Kind { removed, renamed, added };

    Kind kind;
    std::string_view record;   // The line: of the old set when it is removed, else of the new one.
    std::string_view oldName;  // Of renamed ones.
};

struct DiffTally {
    std::uint64_t removed = 0, renamed = 0, added = 0;
};

using TakeChange = std::function<void(const SetChange& change)>;

// Compares two pattern directories or files: first what the old one has and the new one has not, in the order of the
// old one; then what is named otherwise, or new, in the order of the new one. Equal records count once, and their order
// does not count. Throws LoadError.
DiffTally diffSets(const std::string& oldPath, const std::string& newPath, const TakeChange& take);

#endif  // VOLE_WORKSHOP_SET_DIFF_H
