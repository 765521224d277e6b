// WorkerLink: a worker and the conversation with it, from the scanner's side.
//   Owns:    the worker, the socket to it and the memory that both share.
//   Throws:  WorkerLost from whatever needs the worker, once it has ended, does not answer in time or says what makes
//   no
//            sense; it is gone then. std::bad_alloc.
//   Threads: one at a time.
#ifndef ENGINE_ISOLATION_WORKERLINK_H
#define ENGINE_ISOLATION_WORKERLINK_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "FalseAlarms.h"
#include "ReplyReader.h"
#include "SetImage.h"
#include "SharedMemory.h"
#include "Wire.h"
#include "WorkerProcess.h"
#include "io/OwnFd.h"
#include "vole.h"

namespace isolation {

struct WorkerLost {};

// What every worker of a scanner is given.
struct WorkerTerms {
    std::string program;
    std::uint64_t maxMemory = 0;
    std::chrono::milliseconds grace{};  // How long an answer may come after its time limit.
    std::shared_ptr<const SetImage> set;
};

class WorkerLink {
public:
    // `falseAlarms` is borrowed. Both memories are null where they cannot be had: see hasMemory().
    WorkerLink(WorkerTerms terms, const FalseAlarms& falseAlarms);
    WorkerLink(const WorkerLink&) = delete;
    WorkerLink& operator=(const WorkerLink&) = delete;
    ~WorkerLink() = default;

    bool hasMemory() const { return _inbox && _outbox; }
    // REQUIRES: hasMemory().
    Inbox& inbox() { return **_inbox; }

    bool isRunning() const { return _process.isRunning(); }
    // REQUIRES: it is running, as far as that was seen.
    bool hasEnded() const;
    // Starts a worker. Where one was ready before, nothing is waited for but by the first scan. False with a reason in
    // whyNot().
    bool start();
    // Waits until it may do no more than scan. False, and it is gone, with a reason in whyNot().
    bool beReady();
    const std::string& whyNot() const { return _why; }
    // Whether the last one was lost because its process had ended.
    bool hadEnded() const { return _hadEnded; }
    // Ends it. `why` is what whyNot() says.
    void drop(std::string why);

    // REQUIRES for all that follows: it is running, or was lost, which throws again.
    void send(const Order& order, int fd = -1);
    // Waits for its next bell, and reads what is in the outbox by then. It has its time for each content; what the
    // caller takes between a bell and what it sends next does not count.
    Bell wait();
    ReplyReader& replies() { return _reader; }

private:
    using Clock = std::chrono::steady_clock;

    void takeOutbox();
    void startClock(const Order& order);
    void giveTime(Clock::time_point now);
    void watchTime();
    void watchFiles(Clock::time_point now);
    void giveFile();
    void takeFilesBack();
    [[noreturn]] void lose(std::string why);
    [[noreturn]] void loseEnded();

    WorkerTerms _terms;
    std::unique_ptr<SharedMemory<Inbox>> _inbox;
    std::unique_ptr<SharedMemory<Outbox>> _outbox;
    ZOV_SPACE::OwnFd _socket;
    WorkerProcess _process;
    std::vector<ZOV_SPACE::OwnFd> _files;  // That the worker keeps members in; made here.
    ReplyReader _reader;
    bool _isReady = false;
    bool _hadEnded = false;
    std::uint32_t _taken = 0;  // Of the outbox.

    std::chrono::milliseconds _patience{};    // For each content; 0 for any time.
    Clock::time_point _start{};               // Of the content at hand.
    std::chrono::milliseconds _allowedFor{};  // For how long it got processor time; 0 for any time.
    Clock::time_point _allowed{};             // When that was.
    Clock::time_point _bell{};                // The last one.
    Clock::time_point _cancelled{};           // When it was seen that the scan is to end; the epoch before that.
    std::uint64_t _mostTemporary = 0;         // Bytes that the files may take together.
    Clock::time_point _weighed{};             // When they were last looked at.
    std::uint32_t _results = 0;               // As it last stood in the outbox.
    std::size_t _contentsLeft = 0;

    std::string _why;
};

}  // namespace isolation

#endif  // ENGINE_ISOLATION_WORKERLINK_H
