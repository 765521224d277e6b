// TargetSource: all that is to be scanned, in order: the paths, then those in the list, each with what is below it.
//   Memory:  as FileWalker.
//   Threads: one at a time.
#ifndef VOLE_TOOL_TARGET_SOURCE_H
#define VOLE_TOOL_TARGET_SOURCE_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "FileWalker.h"
#include "NameList.h"
#include "Target.h"

class TargetSource {
public:
    // Borrows all three. Among the paths, "-" is standard input. `list` may be null.
    TargetSource(const std::vector<std::string>& paths, NameList* list, const WalkRules& rules)
        : _paths(paths), _list(list), _rules(rules) {}

    // Adds the next targets, at most `most`, and fewer when the list is slow. False when there are none left.
    bool next(std::vector<Target>& targets, std::size_t most);

private:
    bool nextRoot(Target& root);
    bool mayWait() const;

    const std::vector<std::string>& _paths;
    NameList* _list;
    const WalkRules& _rules;
    std::size_t _position = 0;  // In _paths.
    std::optional<FileWalker> _walker;
};

#endif  // VOLE_TOOL_TARGET_SOURCE_H
