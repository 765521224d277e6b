// WorkerProcess: one process of the worker program: started with its descriptors and nothing else of this process,
// ended and waited for with the object.
//   Owns:    the process and the descriptor that stands for it.
//   Threads: one at a time. Starting is safe beside whatever other threads do: nothing of this program runs between the
//            system's fork and the worker program.
#ifndef ENGINE_ISOLATION_WORKERPROCESS_H
#define ENGINE_ISOLATION_WORKERPROCESS_H

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <string>

#include "io/OwnFd.h"

namespace isolation {

class WorkerProcess {
public:
    static constexpr int kFirstFd = 3;
    static constexpr std::size_t kFdCount = 4;

    WorkerProcess() = default;
    WorkerProcess(const WorkerProcess&) = delete;
    WorkerProcess& operator=(const WorkerProcess&) = delete;
    ~WorkerProcess() { end(); }

    // Runs the program with these descriptors as kFirstFd and what follows. The number of the system's error, or 0.
    // REQUIRES: none runs.
    int start(const std::string& program, const std::array<int, kFdCount>& descriptors);

    bool isRunning() const { return _id > 0; }
    // Readable once the process has ended.
    int endedFd() const { return _ended.get(); }

    // Lets it use so much processor time from now on, in whole seconds, 0 for any; it ends by SIGXCPU beyond that.
    void allowSeconds(std::uint64_t seconds) const;

    // Ends it, unless it has ended by itself, and waits for that. How it ended, "it was killed by signal 11 (SEGV)",
    // empty when it was this that ended it or nobody can say.
    std::string end();

private:
    pid_t _id = 0;
    ZOV_SPACE::OwnFd _ended;
};

}  // namespace isolation

#endif  // ENGINE_ISOLATION_WORKERPROCESS_H
