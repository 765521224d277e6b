#include "BodyStore.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace icap {
namespace {

constexpr std::size_t kBlock = 256 * 1024;  // Of one system call.

[[noreturn]] void fail(const std::string& what) { throw std::system_error(errno, std::generic_category(), what); }

// A file without a name, in folders of file systems that have such, or one whose name is taken away at once.
int openUnnamed(const std::string& folder) {
    int fd = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (fd >= 0 || (errno != EOPNOTSUPP && errno != EISDIR)) return fd;
    std::string name = folder + "/vole-body-XXXXXX";
    fd = ::mkostemp(name.data(), O_CLOEXEC);
    if (fd >= 0) ::unlink(name.c_str());
    return fd;
}

}  // namespace

BodyBytes::BodyBytes(int fd, std::size_t size) {
    void* const start = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
    if (start == MAP_FAILED) fail("cannot map a body");
    _bytes = {static_cast<const char*>(start), size};
    _isMapped = true;
}

BodyBytes::~BodyBytes() {
    if (_isMapped) ::munmap(const_cast<char*>(_bytes.data()), _bytes.size());
}

BodyStore::~BodyStore() {
    if (_fd >= 0) ::close(_fd);
}

void BodyStore::openFile() {
    _fd = openUnnamed(_tempDir);
    if (_fd < 0) fail("cannot keep a body in " + _tempDir);
}

void BodyStore::write(std::span<const char> bytes) {
    if (_fd < 0 && _memory.size() + bytes.size() > _memoryLimit) openFile();
    _memory.insert(_memory.end(), bytes.begin(), bytes.end());
    _size += bytes.size();
    if (_fd >= 0 && _memory.size() >= kBlock) flush();
}

void BodyStore::flush() {
    for (std::span<const char> rest = _memory; !rest.empty();) {
        const ssize_t written = ::write(_fd, rest.data(), rest.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) fail("cannot keep a body in " + _tempDir);
        rest = rest.subspan(static_cast<std::size_t>(written));
    }
    _memory.clear();
}

int BodyStore::file() {
    if (_fd >= 0 && !_isReading) flush();
    return _fd;
}

BodyBytes BodyStore::bytes() {
    return file() < 0 ? BodyBytes(std::span<const char>(_memory)) : BodyBytes(_fd, static_cast<std::size_t>(_size));
}

std::size_t BodyStore::read(std::span<char> buffer) {
    if (!_isReading) {
        file();
        _isReading = true;
    }
    if (_fd >= 0 && _readPos == _windowPos + _memory.size()) {
        _windowPos = _readPos;
        _memory.resize(static_cast<std::size_t>(std::min<std::uint64_t>(kBlock, _size - _readPos)));
        const ssize_t got =
            _memory.empty() ? 0 : ::pread(_fd, _memory.data(), _memory.size(), static_cast<off_t>(_readPos));
        if (got < 0 || (got == 0 && !_memory.empty())) fail("cannot read a body again");
        _memory.resize(static_cast<std::size_t>(got));
    }
    const std::size_t from = static_cast<std::size_t>(_readPos - _windowPos);
    const std::size_t count = std::min(buffer.size(), _memory.size() - from);
    std::copy_n(_memory.begin() + static_cast<std::ptrdiff_t>(from), count, buffer.begin());
    _readPos += count;
    return count;
}

}  // namespace icap
