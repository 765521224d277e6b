// SetImage: a set of signatures as other processes can map it. A compiled set is its own file; of any other set a
// compiled copy is made in memory that has no name, which all workers share, and which goes with the last of them.
#ifndef ENGINE_ISOLATION_SETIMAGE_H
#define ENGINE_ISOLATION_SETIMAGE_H

#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "Signatures.h"
#include "io/OwnFd.h"

namespace isolation {

// Threads: any.
class SetImage {
public:
    explicit SetImage(ZOV_SPACE::OwnFd file) : _file(std::move(file)) {}

    int fd() const { return _file.get(); }

    // Whether a worker of that program has been ready with this set, so that the next one need not be waited for.
    bool suits(const std::string& program) const {
        const std::lock_guard lock(_mutex);
        return _program == program;
    }
    void note(const std::string& program) const {
        const std::lock_guard lock(_mutex);
        _program = program;
    }

private:
    ZOV_SPACE::OwnFd _file;
    mutable std::mutex _mutex;
    mutable std::string _program;
};

// To be kept while workers are started from it. Null, with errno set, where it cannot be made. Throws std::bad_alloc.
// Any thread.
std::shared_ptr<const SetImage> imageOf(const vole_signatures& set);

}  // namespace isolation

#endif  // ENGINE_ISOLATION_SETIMAGE_H
