// Target: one thing that is to be scanned, or the reason why it cannot be.
#ifndef VOLE_TOOL_TARGET_H
#define VOLE_TOOL_TARGET_H

#include <string>

struct Target {
    std::string path;
    std::string error = {};      // Not empty: nothing is to be scanned, and this is to be reported.
    bool standardInput = false;  // The path is only its name.
};

#endif  // VOLE_TOOL_TARGET_H
