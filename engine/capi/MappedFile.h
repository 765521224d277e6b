// MappedFile: the bytes of a file, read-only and shared with every process that maps it. They stay until the object
// goes, even if the file is renamed or removed. When somebody cuts the file off they are gone, and touching them ends
// the process: files that are mapped are replaced by renaming others, never written to.
#ifndef ENGINE_CAPI_MAPPEDFILE_H
#define ENGINE_CAPI_MAPPEDFILE_H

#include <fcntl.h>
#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <span>

#include "LargePages.h"
#include "io/OwnFd.h"

class MappedFile {
public:
    MappedFile() = default;
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;
    ~MappedFile() {
        if (_bytes) ::munmap(_bytes, _size);
    }

    // REQUIRES: nothing is mapped yet, and the size, not 0, is the file's. Throws std::bad_alloc when there are not so
    // many addresses.
    void map(int fd, std::uint64_t size) {
        if (size > PTRDIFF_MAX) throw std::bad_alloc();
        void* const mapped = ::mmap(nullptr, static_cast<std::size_t>(size), PROT_READ, MAP_SHARED, fd, 0);
        if (mapped == MAP_FAILED) throw std::bad_alloc();
        _bytes = mapped;
        _size = static_cast<std::size_t>(size);
        _file.reset(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
        ZOV_SPACE::preferLargePages(_bytes, _size);
    }

    // Another descriptor of the file; nothing, with errno set, when there cannot be one.
    ZOV_SPACE::OwnFd duplicate() const { return ZOV_SPACE::OwnFd(::fcntl(_file.get(), F_DUPFD_CLOEXEC, 0)); }

    std::span<const std::byte> bytes() const { return {static_cast<const std::byte*>(_bytes), _size}; }

private:
    void* _bytes = nullptr;
    std::size_t _size = 0;
    ZOV_SPACE::OwnFd _file;
};

#endif  // ENGINE_CAPI_MAPPEDFILE_H
