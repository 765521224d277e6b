#include "EntryTracker.h"

#include <algorithm>

namespace {

bool has(std::string_view line, std::string_view part) { return line.find(part) != std::string_view::npos; }

}  // namespace

void EntryTracker::takeLine(std::string_view line) {
    if (has(line, "] UnarchiveOneFile: bb @")) {
        next();
    } else if (const auto member = line.find("] process_entry : "); member != std::string_view::npos) {
        offer(line.substr(member));
    } else if (line.starts_with("Oversize entry(") || line.starts_with("Overratio entry:") ||
               line.starts_with("Unarchive Exception: Reach the ")) {
        settle(false);
    }
}

std::string EntryTracker::current() {
    settle(true);
    return _queue.empty() ? std::string() : _queue.front();
}

// "] process_entry : <name>, size= 1, usize= 2" or "] process_entry : [NULL], size= ..."
void EntryTracker::offer(std::string_view member) {
    settle(true);
    const std::size_t begin = member.find(" : ") + 3;
    const std::size_t end = member.rfind(", size= ");
    if (end == std::string_view::npos || end < begin + 2 || member.substr(end) == ", size= 0, usize= 0") return;
    std::string_view name = member.substr(begin, end - begin);
    const bool named = name.front() == '<';
    name = name.substr(1, name.size() - 2);
    name.remove_prefix(std::min(name.find_first_not_of('/'), name.size()));
    _offered = named && !name.empty() ? std::string(name) : std::to_string(_accepted);
    _pending = true;
}

void EntryTracker::settle(bool queued) {
    if (_pending && queued) {
        _queue.push_back(_archive.empty() ? _offered : _archive + "/" + _offered);
        ++_accepted;
    }
    _pending = false;
}

void EntryTracker::next() {
    settle(true);
    if (_queue.empty()) return;
    _archive = _queue.front();
    _queue.pop_front();
    _accepted = 0;
}
