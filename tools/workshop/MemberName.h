// MemberName: what a user calls a member of an archive. Either its path, the names of the archives around it and its
// own with slashes between them; or those names as a list in JSON, as reports have it: ["b.zip","c/d"]. Names have
// slashes in them, too, so that a path may fit several members, and only a list tells them apart.
//   Threads: immutable.
#ifndef VOLE_WORKSHOP_MEMBER_NAME_H
#define VOLE_WORKSHOP_MEMBER_NAME_H

#include <optional>
#include <string>

#include "FileReport.h"

class MemberName {
public:
    // Whatever is no list is a path.
    explicit MemberName(std::string text);

    bool fits(const MemberPath& member) const;
    const std::string& text() const { return _text; }  // As it was given.

private:
    std::string _text;
    std::optional<MemberPath> _list;
};

// The names with slashes between them.
std::string joined(const MemberPath& member);
// As a list, which is unambiguous.
std::string listOf(const MemberPath& member);

#endif  // VOLE_WORKSHOP_MEMBER_NAME_H
