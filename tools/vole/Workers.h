// Workers: scans targets on several threads and hands the reports on in the order of the targets.
//
// Every thread does whatever is due: it fetches the next targets when few are left, scans some, one after the other,
// and hands reports on when the first that is missing is its own. So one thread needs no other, and none waits for a
// coordinator. One that finds nothing left takes what others have in hand and did not begin.
//   Memory:  what was scanned and waits for a slow scan ahead of it is bounded by number and by bytes.
//   Ends:    when there are no targets left, when a report is not taken, or by a signal; in the last case all scans
//            that were begun are handed on.
//   Throws:  from run(), the first exception of any thread.
#ifndef VOLE_TOOL_WORKERS_H
#define VOLE_TOOL_WORKERS_H

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "FileReport.h"
#include "FileScanner.h"
#include "Target.h"

class Workers {
public:
    // Adds targets; false when there are none left. Takes a report; false when there is no use in further ones. Each is
    // called from any of the threads, one at a time.
    using Source = std::function<bool(std::vector<Target>& targets, std::size_t most)>;
    using Sink = std::function<bool(const FileReport& report)>;

    Workers(Source source, Sink sink) : _source(std::move(source)), _sink(std::move(sink)) {}

    // One thread for each scanner; the caller's is the first, and no signal goes to others.
    void run(const std::vector<std::unique_ptr<FileScanner>>& scanners);

private:
    struct Slot {
        Target target;
        FileReport report = {};
        bool done = false;
        std::size_t bytes = 0;  // Of memory, once done.
    };
    // What one thread scans. Others only take slots from its end.
    struct Hand {
        std::vector<Target> targets;
        std::vector<Slot*> slots;  // Of the first of the targets.
        std::size_t begun = 0;     // The last of which is being scanned.
    };
    using Lock = std::unique_lock<std::mutex>;

    void work(FileScanner& scanner, Hand& hand);
    void scan(FileScanner& scanner, Hand& hand);
    bool take(Hand& hand);
    void fill(Hand& hand);
    bool takeBack();
    bool handIn(Hand& hand, FileReport report);
    bool mayFetch() const;
    void fetch(Lock& lock);
    void handOn(Lock& lock);
    std::vector<FileReport> takeReady();
    void fail(std::exception_ptr failure);

    Source _source;
    Sink _sink;
    std::mutex _mutex;  // Guards what follows; not held while source or sink are called.
    std::condition_variable _changed;
    std::deque<Slot> _slots;
    std::deque<Slot*> _waiting;     // Slots that no thread has taken.
    std::vector<Hand> _hands;       // One for each thread.
    std::size_t _bytesWaiting = 0;  // Of slots that are done.
    bool _fetching = false;
    bool _handingOn = false;
    bool _exhausted = false;
    bool _sourceIsSlow = false;
    bool _stopped = false;
    std::exception_ptr _failure;
};

#endif  // VOLE_TOOL_WORKERS_H
