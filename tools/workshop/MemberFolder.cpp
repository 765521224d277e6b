#include "MemberFolder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "Contents.h"
#include "Messages.h"

namespace {

using ZOV_SPACE::OwnFd;

[[noreturn]] void fail(const std::string& path) { throw LoadError("cannot write " + path + ": " + systemText(errno)); }

// The last characters of a long name, which tell what kind of file it is.
std::string harmless(std::string_view name) {
    constexpr std::size_t kLongest = 64;
    constexpr std::string_view kAllowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
    std::string text(name.substr(name.size() - std::min(name.size(), kLongest)));
    for (char& c : text) {
        if (kAllowed.find(c) == kAllowed.npos) c = '_';
    }
    return text;
}

std::string fileName(std::uint64_t number, std::string_view member) {
    char digits[24];
    std::snprintf(digits, sizeof digits, "%04llu-", static_cast<unsigned long long>(number));
    return digits + harmless(member);
}

void writeAll(int fd, const char* bytes, std::size_t size, const std::string& path) {
    while (size > 0) {
        const ssize_t count = ::write(fd, bytes, size);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) fail(path);
        bytes += count;
        size -= static_cast<std::size_t>(count);
    }
}

// Takes a file away again unless it is kept.
class Unfinished {
public:
    Unfinished(int folder, const std::string& name) : _folder(folder), _name(name) {}
    Unfinished(const Unfinished&) = delete;
    Unfinished& operator=(const Unfinished&) = delete;
    ~Unfinished() {
        if (!_isKept) ::unlinkat(_folder, _name.c_str(), 0);
    }
    void keep() { _isKept = true; }

private:
    int _folder;
    const std::string& _name;
    bool _isKept = false;
};

}  // namespace

MemberFolder::MemberFolder(const std::string& path) : _path(path) {
    constexpr mode_t kOwnerOnly = 0700;
    if (::mkdir(path.c_str(), kOwnerOnly) != 0 && errno != EEXIST) fail(path);
    _folder = OwnFd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!_folder) fail(path);
}

std::string MemberFolder::write(const vole_content& content, std::string_view name) {
    constexpr mode_t kOwnerOnly = 0600;
    std::string file = fileName(_written + 1, name);
    const std::string path = _path + '/' + file;
    OwnFd fd(::openat(_folder.get(), file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kOwnerOnly));
    if (!fd) fail(path);
    Unfinished unfinished(_folder.get(), file);
    readPieces(content, [&](const char* piece, std::size_t size) { writeAll(fd.get(), piece, size, path); });
    if (fd.reset() != 0) fail(path);
    unfinished.keep();
    ++_written;
    return file;
}
