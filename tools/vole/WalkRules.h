// WalkRules: what the user wants left out.
#ifndef VOLE_TOOL_WALK_RULES_H
#define VOLE_TOOL_WALK_RULES_H

#include <fnmatch.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

struct WalkRules {
    std::vector<std::string> excluded = {};  // Shell patterns, in which * stands for slashes, too.
    bool oneFileSystem = false;              // Folders on other file systems than the walk's root are not entered.

    // True when a pattern with a slash in it fits the path, or another one the path's last component. Those without do
    // not see what is before it: else ".*", meant for hidden files, would fit all of "./folder", and the folder ".".
    bool excludes(const std::string& path) const {
        const std::string::size_type slash = path.rfind('/');
        const char* const name = path.c_str() + (slash == std::string::npos ? 0 : slash + 1);
        const bool isNamed = name != std::string_view(".") && name != std::string_view("..");
        return std::any_of(excluded.begin(), excluded.end(), [&](const std::string& pattern) {
            const bool wholePath = pattern.find('/') != std::string::npos;
            return (wholePath || isNamed) && ::fnmatch(pattern.c_str(), wholePath ? path.c_str() : name, 0) == 0;
        });
    }
};

#endif  // VOLE_TOOL_WALK_RULES_H
