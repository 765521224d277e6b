// ChosenContents.h: those contents of a file that a command is asked to work on.
#ifndef VOLE_WORKSHOP_CHOSEN_CONTENTS_H
#define VOLE_WORKSHOP_CHOSEN_CONTENTS_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "Contents.h"
#include "MemberName.h"

// "a.zip/b/c": the file and the member in it, not escaped.
std::string contentName(const std::string& file, const MemberPath& member);

struct ContentChoice {
    vole_form form = VOLE_FORM_RAW;
    bool members = false;                   // All of them, besides the file itself.
    std::optional<MemberName> member = {};  // Or only those that are called so.

    bool isFileOnly() const { return !members && !member; }
    bool takes(const SeenContent& seen) const;
};

// How files are read, and who hears of what could not be. The signatures do not matter.
struct ReadingTerms {
    vole_limits limits = VOLE_LIMITS_INIT;
    std::uint32_t flags = 0;        // VOLE_SCAN_...
    bool incompleteIsFine = false;  // Whether reasons are told, and no more.
    NoteProblem note;
};

// Shows the chosen contents of the file, and unpacks no members when it is the only one. False when it could not be
// read, when something in it was not seen that might be one of them, and when there is none; that was noted then, as
// is that several members are called the same. Throws LoadError, also when a path fits members of different names, and
// what `take` throws.
bool forChosenContents(const std::string& path, const ContentChoice& choice, const ReadingTerms& terms,
                       const std::function<void(const SeenContent& seen)>& take);

// Scans a file, with its members or without, for all that these signatures find. False as above.
bool forFindings(const std::string& path, vole_signatures* signatures, bool inFileOnly, const ReadingTerms& terms,
                 const std::function<void(const vole_finding& finding)>& take);

// Notes what a walk of the file did not see. Whether that is fine.
bool noteUnseen(const FileReport& report, const ReadingTerms& terms);

#endif  // VOLE_WORKSHOP_CHOSEN_CONTENTS_H
