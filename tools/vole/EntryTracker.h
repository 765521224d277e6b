// EntryTracker: finds out from the engine's diagnostics, one scan at a time, which content is being scanned. They tell
// what is taken off the list of contents and which archive members are offered; whether a member was queued shows in
// the lines that follow.
#ifndef VOLE_TOOL_ENTRY_TRACKER_H
#define VOLE_TOOL_ENTRY_TRACKER_H

#include <deque>
#include <string>
#include <string_view>

class EntryTracker {
public:
    // The next diagnostic line, at the level that has all.
    void takeLine(std::string_view line);

    // The path of the member that is being scanned, with the archives that it lies in as folders; empty while that is
    // the file itself.
    std::string current();

private:
    void offer(std::string_view member);
    void settle(bool queued);
    void next();

    std::deque<std::string> _queue{""};  // Paths of the contents that wait; the file itself is the first.
    std::string _archive;                // The content that was opened last.
    std::string _offered;                // The member that may be queued.
    bool _pending = false;
    unsigned _accepted = 0;  // Members queued from this archive.
};

#endif  // VOLE_TOOL_ENTRY_TRACKER_H
