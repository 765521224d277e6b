// SetMerge.h: several sets of signatures as one, without what is in them twice.
//   Memory: 40 bytes for each record.
#ifndef VOLE_WORKSHOP_SET_MERGE_H
#define VOLE_WORKSHOP_SET_MERGE_H

#include <cstdint>
#include <string>
#include <vector>

struct MergeOptions {
    std::vector<std::string> paths;  // Pattern directories and files, in the order of a load.
    std::string folder;              // To write to; made when it is missing.
    bool oneName = false;            // Of records that differ in their names alone, the last one stays.
};

struct MergeTally {
    std::uint64_t records = 0;   // Written.
    std::uint64_t repeated = 0;  // Left out.
};

// Writes "merged.hdb", "merged.chk" and, when there are lists, "pattern_assistant.xml". Records stay in the order in
// which a load of all paths has them, where of equal ones the last counts, so that the same findings come first. Files
// of these names are replaced when all new ones are on the disk, then one after the other: only a kill or a failure of
// the machine between the two leaves old ones beside new ones. Throws LoadError, mostly with nothing replaced; also
// when the folder has other pattern files, since a load of it would have those, too.
MergeTally mergeSets(const MergeOptions& options);

#endif  // VOLE_WORKSHOP_SET_MERGE_H
