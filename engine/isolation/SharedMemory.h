// SharedMemory: one object of type T in memory that has no name and a descriptor instead, by which another process can
// map it, too. Its size stays what it is, so that nobody can have another one's access fail.
#ifndef ENGINE_ISOLATION_SHAREDMEMORY_H
#define ENGINE_ISOLATION_SHAREDMEMORY_H

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <memory>
#include <utility>

#include "io/OwnFd.h"

namespace isolation {

// A file in memory without a name. Holds nothing, with errno set, where there can be none.
inline ZOV_SPACE::OwnFd memoryFile(const char* label) {
    return ZOV_SPACE::OwnFd(::memfd_create(label, MFD_CLOEXEC | MFD_ALLOW_SEALING));
}

template <class T>
class SharedMemory {
public:
    enum class Writers { everybody, thisProcess };

    // A new object, all zeros. Null, with errno set, where that cannot be had.
    static std::unique_ptr<SharedMemory> create(const char* label, Writers writers) {
        ZOV_SPACE::OwnFd file = memoryFile(label);
        if (!file || ::ftruncate(file.get(), sizeof(T)) != 0) return nullptr;
        void* const mapped = mapping(file.get(), PROT_READ | PROT_WRITE);
        if (!mapped) return nullptr;
        auto memory = std::make_unique<SharedMemory>(std::move(file), static_cast<T*>(mapped));
        // What this process has mapped by now it may still write to.
        const int closedToOthers = writers == Writers::thisProcess ? F_SEAL_FUTURE_WRITE : 0;
        const int seals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL | closedToOthers;
        return ::fcntl(memory->fd(), F_ADD_SEALS, seals) == 0 ? std::move(memory) : nullptr;
    }

    // The mapping of another process's object; null, with errno set, where that fails. `protection` is mmap()'s.
    static T* mapping(int fd, int protection) {
        void* const mapped = ::mmap(nullptr, sizeof(T), protection, MAP_SHARED, fd, 0);
        return mapped == MAP_FAILED ? nullptr : static_cast<T*>(mapped);
    }

    SharedMemory(ZOV_SPACE::OwnFd file, T* object) : _file(std::move(file)), _object(object) {}
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;
    ~SharedMemory() { ::munmap(_object, sizeof(T)); }

    int fd() const { return _file.get(); }
    T& operator*() const { return *_object; }
    T* operator->() const { return _object; }

private:
    ZOV_SPACE::OwnFd _file;
    T* _object;
};

}  // namespace isolation

#endif  // ENGINE_ISOLATION_SHAREDMEMORY_H
