// WalkRules: what the user wants left out.
#ifndef VOLE_TOOL_WALK_RULES_H
#define VOLE_TOOL_WALK_RULES_H

#include <fnmatch.h>

#include <algorithm>
#include <string>
#include <vector>

struct WalkRules {
    std::vector<std::string> excluded = {};  // Shell patterns, in which * stands for slashes, too.
    bool oneFileSystem = false;              // Folders on other file systems than the walk's root are not entered.

    // True when a pattern fits the path or its last component.
    bool excludes(const std::string& path) const {
        const std::string::size_type slash = path.rfind('/');
        const char* const name = path.c_str() + (slash == std::string::npos ? 0 : slash + 1);
        return std::any_of(excluded.begin(), excluded.end(), [&](const std::string& pattern) {
            return ::fnmatch(pattern.c_str(), path.c_str(), 0) == 0 || ::fnmatch(pattern.c_str(), name, 0) == 0;
        });
    }
};

#endif  // VOLE_TOOL_WALK_RULES_H
