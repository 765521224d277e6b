// fstat() by the system call that takes a descriptor and nothing else. The C library's takes a path as well, by which a
// worker could ask for the status of any file: a filter does not see what a pointer leads to.
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

// Takes the place of the C library's in this program. Where there is a call for sizes of 64 bits, the structure is its.
extern "C" int fstat(int fd, struct stat* status) noexcept {
#ifdef SYS_fstat64
    static_assert(sizeof status->st_size == 8 && sizeof status->st_mtim == 8);
    return static_cast<int>(::syscall(SYS_fstat64, fd, status));
#else
    return static_cast<int>(::syscall(SYS_fstat, fd, status));
#endif
}
