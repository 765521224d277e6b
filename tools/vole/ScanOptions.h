// ScanOptions: what the user asked "vole scan" for.
#ifndef VOLE_TOOL_SCAN_OPTIONS_H
#define VOLE_TOOL_SCAN_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "LibraryEngine.h"
#include "WalkRules.h"

struct ScanOptions {
    std::vector<std::string> paths;        // "-": standard input
    std::optional<std::string> filesFrom;  // a list of further paths; "-": on standard input
    bool nullSeparated = false;            // that list
    WalkRules rules;

    LibraryOptions engine;  // an empty pattern directory stands for the bundled one
    bool hostView = false;  // by the older interface; also when there is a dump folder
    std::string dumpDir;    // where archive members are written; empty: nowhere
    unsigned jobs = 0;      // 0: as many as there are processors

    bool json = false;
    bool onlyFindings = false;  // clean files are not listed
    bool noSummary = false;
    bool noProgress = false;
    bool limits = false;          // the limits in force are printed; there may be no paths then
    bool debug = false;           // load problems and all reasons, or the older interface's diagnostics
    bool incompleteIsOk = false;  // for the exit status
};

#endif  // VOLE_TOOL_SCAN_OPTIONS_H
