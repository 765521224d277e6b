#include "TargetSource.h"

#include <utility>

bool TargetSource::next(std::vector<Target>& targets, std::size_t most) {
    while (targets.size() < most) {
        if (_walker && _walker->next()) {
            targets.push_back({_walker->path(), _walker->error()});
            continue;
        }
        _walker.reset();
        if (!targets.empty() && mayWait()) return true;
        Target root;
        if (!nextRoot(root)) return !targets.empty();
        if (root.standardInput || !root.error.empty()) {
            targets.push_back(std::move(root));
        } else {
            _walker.emplace(std::move(root.path), _rules);
        }
    }
    return true;
}

bool TargetSource::nextRoot(Target& root) {
    if (_position == _paths.size()) return _list && _list->next(root);
    const std::string& path = _paths[_position++];
    root = {path, {}, path == "-"};
    return true;
}

// Whether nextRoot() may have to wait for whoever writes the list.
bool TargetSource::mayWait() const { return _position == _paths.size() && _list && !_list->hasWholeName(); }
