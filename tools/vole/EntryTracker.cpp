#include "EntryTracker.h"

#include <algorithm>

namespace {

// A debug line's message, behind "[unit:line] ". It may hold a member's name, in which anything can stand.
std::string_view messageOf(std::string_view line) {
    const std::size_t prefix = line.starts_with('[') ? line.find("] ") : std::string_view::npos;
    return prefix == std::string_view::npos ? std::string_view() : line.substr(prefix + 2);
}

}  // namespace

void EntryTracker::takeLine(std::string_view line) {
    const std::string_view message = messageOf(line);
    if (message.starts_with("UnarchiveOneFile: bb @")) {
        next();
    } else if (message.starts_with("process_entry : ")) {
        offer(message);
    } else if (line.starts_with("Oversize entry(") || line.starts_with("Overratio entry:") ||
               line.starts_with("Unarchive Exception: Reach the ")) {
        settle(false);
    }
}

std::string EntryTracker::current() {
    settle(true);
    return _queue.empty() ? std::string() : _queue.front();
}

// "process_entry : <name>, size= 1, usize= 2" or "process_entry : [NULL], size= ..."
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
