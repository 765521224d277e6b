// RecordNames: names for new records, from a template or from the names of files.
//
// In a template "%f" stands for the file's name without its folders, "%m" for the member's path in it (the file's name
// where there is none), "%n" for the record's number, counted from 1, and "%%" for "%".
#ifndef VOLE_WORKSHOP_RECORD_NAMES_H
#define VOLE_WORKSHOP_RECORD_NAMES_H

#include <cstdint>
#include <string>
#include <string_view>

#include "FileReport.h"

class RecordNames {
public:
    // An empty template stands for "%f", and "%f/%m" for members. Throws LoadError for one that cannot make names.
    explicit RecordNames(std::string text);

    // What a record cannot have in its name, or should not because it is printed, is replaced; what is too long is cut.
    std::string nameOf(const std::string& file, const MemberPath& member, std::uint64_t number) const;

private:
    std::string _text;
};

#endif  // VOLE_WORKSHOP_RECORD_NAMES_H
