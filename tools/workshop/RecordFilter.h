// RecordFilter.h: which records of a set somebody asks for.
#ifndef VOLE_WORKSHOP_RECORD_FILTER_H
#define VOLE_WORKSHOP_RECORD_FILTER_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "RecordFiles.h"

// All that is given has to hold.
struct RecordFilter {
    std::optional<RecordKind> kind;
    std::string name;                   // Shell pattern, whatever the case of ASCII letters; empty: any.
    std::string text;                   // Somewhere in the line, as it stands; empty: anything.
    std::vector<unsigned char> digest;  // First bytes of an MD5 record's; empty: any.
    std::optional<std::uint32_t> size;  // Of an MD5 record, in bytes.

    bool fits(const Record& record) const;
};

#endif  // VOLE_WORKSHOP_RECORD_FILTER_H
