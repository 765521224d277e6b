// Inspection.h: what the engine sees in files: "vole inspect".
#ifndef VOLE_WORKSHOP_INSPECTION_H
#define VOLE_WORKSHOP_INSPECTION_H

#include <ostream>
#include <string>
#include <vector>

#include "ExitCode.h"
#include "vole.h"

struct InspectOptions {
    vole_limits limits = VOLE_LIMITS_INIT;
    bool shallow = false;
    bool json = false;
    bool normalised = false;  // The normalised texts alone.
    bool escapes = false;     // Those as lines that are safe to print, below headings. Otherwise as they are.
    std::string extractTo;    // Folder for the members. Empty: none.
};

// Writes what is in each file; "-" is standard input. What cannot be read or written is told on standard error, and
// the files behind it are looked at all the same. Throws LoadError when there can be no scan at all.
ExitCode inspectFiles(vole_signatures* signatures, const InspectOptions& options, const std::vector<std::string>& paths,
                      std::ostream& out);

#endif  // VOLE_WORKSHOP_INSPECTION_H
