#include "io/FileIo.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <utility>

#include "NoCancel.h"

namespace ZOV_SPACE {
namespace {

constexpr mode_t kPrivateMode = S_IRUSR | S_IWUSR;

std::atomic<AnonymousFiles*> anonymousFiles = nullptr;

bool wroteAll(std::int64_t count, std::size_t n) {
    if (count == static_cast<std::int64_t>(n)) return true;
    if (count >= 0) errno = EIO;  // A write that takes nothing and names no reason.
    return false;
}

}  // namespace

ssize_t readSome(int fd, void* bytes, std::size_t n) {
    ssize_t count;
    do {
        count = ::read(fd, bytes, n);
    } while (count < 0 && errno == EINTR);
    return count;
}

std::int64_t readAll(int fd, void* bytes, std::size_t n) {
    return transferAll(n, [=](std::size_t done) { return ::read(fd, static_cast<char*>(bytes) + done, n - done); });
}

std::int64_t readAllAt(int fd, void* bytes, std::size_t n, std::int64_t position) {
    return transferAll(n, [=](std::size_t done) {
        const auto at = static_cast<off_t>(position + static_cast<std::int64_t>(done));
        return ::pread(fd, static_cast<char*>(bytes) + done, n - done, at);
    });
}

bool writeAll(int fd, const void* bytes, std::size_t n) {
    const auto step = [=](std::size_t done) { return ::write(fd, static_cast<const char*>(bytes) + done, n - done); };
    return wroteAll(transferAll(n, step), n);
}

bool writeAllAt(int fd, const void* bytes, std::size_t n, std::int64_t position) {
    const auto step = [=](std::size_t done) {
        const auto at = static_cast<off_t>(position + static_cast<std::int64_t>(done));
        return ::pwrite(fd, static_cast<const char*>(bytes) + done, n - done, at);
    };
    return wroteAll(transferAll(n, step), n);
}

OwnFd openFile(const char* path, int flags, mode_t mode) { return openFileAt(AT_FDCWD, path, flags, mode); }

OwnFd openFileAt(int directory, const char* path, int flags, mode_t mode) {
    const NoCancel guard;
    return OwnFd(::openat(directory, path, flags | O_CLOEXEC, mode));
}

OwnFd createTemporaryFile(char* path) {
    const NoCancel guard;
    return OwnFd(::mkostemp(path, O_CLOEXEC));
}

OwnFd createAnonymousFile() {
    if (AnonymousFiles* const files = anonymousFiles) return files->take();
    if (OwnFd file = openFile("/tmp", O_TMPFILE | O_RDWR, kPrivateMode)) return file;
    char path[] = "/tmp/XXXXXX";  // The file system has no unnamed files.
    OwnFd file = createTemporaryFile(path);
    if (file) ::unlink(path);
    return file;
}

void releaseAnonymousFile(OwnFd file) noexcept {
    if (AnonymousFiles* const files = anonymousFiles; files && file) files->giveBack(std::move(file));
}

void takeAnonymousFilesFrom(AnonymousFiles* files) { anonymousFiles = files; }

}  // namespace ZOV_SPACE
