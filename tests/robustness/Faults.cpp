#include "Faults.h"

#include <dirent.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/uio.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace faults {
namespace {

constinit Plan plan;
constinit std::atomic<unsigned> calls = 0;  // Of all threads.

// Counts a call of the plan's target; true when it is to fail.
bool meets(Target target) {
    if (plan.target != target) return false;
    const unsigned number = ++calls;
    return plan.lasting ? number >= plan.first : number == plan.first;
}

bool refusesMemory() {
    if (!meets(Target::allocations)) return false;
    errno = ENOMEM;
    return true;
}

bool fails() {
    if (meets(Target::moment)) plan.action();
    if (!meets(Target::calls)) return false;
    errno = plan.error;
    return true;
}

bool breaks() {
    if (fails()) return true;
    if (!meets(Target::interrupted)) return false;
    errno = EINTR;
    return true;
}

std::size_t halved(std::size_t n) { return n > 1 && meets(Target::shortened) ? n / 2 : n; }

}  // namespace

void begin(const Plan& wanted) {
    calls = 0;
    plan = wanted;
}

unsigned end() {
    plan = {};
    return calls;
}

}  // namespace faults

using faults::breaks;
using faults::fails;
using faults::halved;
using faults::refusesMemory;

// The names are the linker's (--wrap) and the C library's.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,readability-identifier-naming)
extern "C" {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
void* __real_malloc(std::size_t n);
void* __real_calloc(std::size_t count, std::size_t n);
void* __real_realloc(void* memory, std::size_t n);
}

namespace {
void* allocated(std::size_t n) { return refusesMemory() ? nullptr : __real_malloc(std::max<std::size_t>(n, 1)); }
}  // namespace

void* operator new(std::size_t n) {
    if (void* const memory = allocated(n)) return memory;
    throw std::bad_alloc();
}
void* operator new[](std::size_t n) { return operator new(n); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept { return allocated(n); }
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept { return allocated(n); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

extern "C" {
void* __wrap_malloc(std::size_t n) { return refusesMemory() ? nullptr : __real_malloc(n); }
void* __wrap_calloc(std::size_t count, std::size_t n) { return refusesMemory() ? nullptr : __real_calloc(count, n); }
void* __wrap_realloc(void* memory, std::size_t n) { return refusesMemory() ? nullptr : __real_realloc(memory, n); }
#else
void* __libc_malloc(std::size_t n);
void* __libc_calloc(std::size_t count, std::size_t n);
void* __libc_realloc(void* memory, std::size_t n);

void* malloc(std::size_t n) noexcept { return refusesMemory() ? nullptr : __libc_malloc(n); }
void* calloc(std::size_t count, std::size_t n) noexcept { return refusesMemory() ? nullptr : __libc_calloc(count, n); }
void* realloc(void* memory, std::size_t n) noexcept { return refusesMemory() ? nullptr : __libc_realloc(memory, n); }
#endif

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument);
int __real_fsync(int fd);
int __real_rename(const char* from, const char* to);
void* __real_mmap64(void* at, std::size_t n, int protection, int flags, int fd, off_t offset);
int __real_open64(const char* path, int flags, mode_t mode);
int __real_openat64(int folder, const char* path, int flags, mode_t mode);
int __real_mkostemp64(char* path, int flags);
int __real_fcntl64(int fd, int command, int argument);
int __real_fstat64(int fd, struct stat* status);
int __real_stat64(const char* path, struct stat* status);
int __real_ftruncate64(int fd, off_t length);
int __real_posix_fallocate64(int fd, off_t offset, off_t length);
DIR* __real_fdopendir(int fd);
dirent* __real_readdir64(DIR* directory);
ssize_t __real_read(int fd, void* to, std::size_t n);
ssize_t __real_pread64(int fd, void* to, std::size_t n, off_t at);
ssize_t __real_preadv64(int fd, const iovec* pieces, int count, off_t at);
ssize_t __real_write(int fd, const void* from, std::size_t n);
ssize_t __real_pwrite64(int fd, const void* from, std::size_t n, off_t at);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument) {
    return fails() ? EAGAIN : __real_pthread_create(thread, attributes, start, argument);
}
int __wrap_fsync(int fd) { return fails() ? -1 : __real_fsync(fd); }
int __wrap_rename(const char* from, const char* to) { return fails() ? -1 : __real_rename(from, to); }
void* __wrap_mmap64(void* at, std::size_t n, int protection, int flags, int fd, off_t offset) {
    if (refusesMemory()) return reinterpret_cast<void*>(-1);
    return __real_mmap64(at, n, protection, flags, fd, offset);
}
int __wrap_open64(const char* path, int flags, mode_t mode) { return fails() ? -1 : __real_open64(path, flags, mode); }
int __wrap_openat64(int folder, const char* path, int flags, mode_t mode) {
    return fails() ? -1 : __real_openat64(folder, path, flags, mode);
}
int __wrap_mkostemp64(char* path, int flags) { return fails() ? -1 : __real_mkostemp64(path, flags); }
int __wrap_fcntl64(int fd, int command, int argument) { return fails() ? -1 : __real_fcntl64(fd, command, argument); }
int __wrap_fstat64(int fd, struct stat* status) { return fails() ? -1 : __real_fstat64(fd, status); }
int __wrap_stat64(const char* path, struct stat* status) { return fails() ? -1 : __real_stat64(path, status); }
int __wrap_ftruncate64(int fd, off_t length) { return fails() ? -1 : __real_ftruncate64(fd, length); }
int __wrap_posix_fallocate64(int fd, off_t offset, off_t length) {
    return fails() ? errno : __real_posix_fallocate64(fd, offset, length);
}
DIR* __wrap_fdopendir(int fd) { return fails() ? nullptr : __real_fdopendir(fd); }
dirent* __wrap_readdir64(DIR* directory) { return fails() ? nullptr : __real_readdir64(directory); }
ssize_t __wrap_read(int fd, void* to, std::size_t n) { return breaks() ? -1 : __real_read(fd, to, halved(n)); }
ssize_t __wrap_pread64(int fd, void* to, std::size_t n, off_t at) {
    return breaks() ? -1 : __real_pread64(fd, to, halved(n), at);
}
ssize_t __wrap_preadv64(int fd, const iovec* pieces, int count, off_t at) {
    if (breaks()) return -1;
    const std::size_t n = count > 0 ? halved(pieces[0].iov_len) : 0;
    if (count < 1 || n == pieces[0].iov_len) return __real_preadv64(fd, pieces, count, at);
    return __real_pread64(fd, pieces[0].iov_base, n, at);
}
ssize_t __wrap_write(int fd, const void* from, std::size_t n) {
    return breaks() ? -1 : __real_write(fd, from, halved(n));
}
ssize_t __wrap_pwrite64(int fd, const void* from, std::size_t n, off_t at) {
    return breaks() ? -1 : __real_pwrite64(fd, from, halved(n), at);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,readability-identifier-naming)
