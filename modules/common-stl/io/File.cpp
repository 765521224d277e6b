#include "io/File.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <utility>

#include "NoCancel.h"
#include "io/FileIo.h"

namespace ZOV_SPACE {
namespace {

constexpr mode_t kDirectoryMode = 0755;
constexpr std::string_view kTemporaryDirectory = "/tmp/";
constexpr std::string_view kTemporaryTemplate = "XXXXXX";

struct CloseDirectory {
    void operator()(DIR* directory) const {
        const NoCancel guard;
        ::closedir(directory);
    }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

Directory openDirectory(int parent, const char* path, int extraFlags = 0) {
    OwnFd fd = openFileAt(parent, path, O_RDONLY | O_DIRECTORY | extraFlags);
    if (!fd) return nullptr;
    Directory directory(::fdopendir(fd.get()));
    if (directory) fd.release();
    return directory;
}

bool isDotName(std::string_view name) { return name == "." || name == ".."; }

// The next entry's name but "." and ".."; null at the end, with errno 0, and on failure, with errno set.
const char* nextName(DIR* directory) {
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(directory);
        if (!entry) return nullptr;
        if (!isDotName(entry->d_name)) return entry->d_name;
    }
}

std::optional<struct stat> statusOf(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return std::nullopt;
    return status;
}

// A walk over a directory tree that removes what it meets. Keeps the directories from the root of the tree to the
// current one open and names everything relative to these, so that nobody can lead it elsewhere.
class TreeRemover {
public:
    bool run(const char* path) {
        removeOrEnter(AT_FDCWD, path);
        while (!_open.empty()) {
            if (const char* name = nextName(_open.back().directory.get())) {
                removeOrEnter(::dirfd(_open.back().directory.get()), name);
            } else {
                if (errno != 0) fail();
                leave();
            }
        }
        if (_firstError != 0) errno = _firstError;
        return _firstError == 0;
    }

private:
    struct Level {
        Directory directory;
        std::string name;  // In the directory of the level above.
    };

    void removeOrEnter(int parent, const char* name) {
        if (::unlinkat(parent, name, 0) == 0) return;
        // Linux says EISDIR for a directory, POSIX EPERM.
        if (errno != EISDIR && errno != EPERM) return fail();
        const int whyNot = errno;
        if (_open.size() >= File::kMaxRemoveDepth) return fail(ELOOP);
        Directory directory = openDirectory(parent, name, O_NOFOLLOW);
        if (!directory) return fail(errno == ENOTDIR ? whyNot : errno);
        _open.push_back({std::move(directory), name});
    }

    void leave() {
        const std::string name = std::move(_open.back().name);
        _open.pop_back();
        const int parent = _open.empty() ? AT_FDCWD : ::dirfd(_open.back().directory.get());
        if (::unlinkat(parent, name.c_str(), AT_REMOVEDIR) != 0) fail();
    }

    void fail(int error = errno) {
        if (_firstError == 0) _firstError = error;
    }

    std::vector<Level> _open;
    int _firstError = 0;
};

}  // namespace

File::File(std::string path) : _path(std::move(path)) {
    if (_path.find('\0') != std::string::npos) _path.clear();
    while (_path.size() > 1 && _path.back() == '/') _path.pop_back();
}

File::File(const std::string& parent, const std::string& name)
    : File(parent.empty() || parent.back() == '/' ? parent + name : parent + "/" + name) {}

std::string File::getName() const { return _path.substr(_path.rfind('/') + 1); }

std::string File::getParent() const {
    const std::size_t slash = _path.rfind('/');
    if (slash == std::string::npos) return "";
    return slash == 0 ? "/" : _path.substr(0, slash);
}

bool File::exists() const { return statusOf(_path).has_value(); }

bool File::isDirectory() const {
    const auto status = statusOf(_path);
    return status && S_ISDIR(status->st_mode);
}

bool File::isFile() const {
    const auto status = statusOf(_path);
    return status && S_ISREG(status->st_mode);
}

std::int64_t File::length() const {
    const auto status = statusOf(_path);
    return status ? status->st_size : -1;
}

bool File::list(std::vector<std::string>& names) const {
    names.clear();
    const Directory directory = openDirectory(AT_FDCWD, _path.c_str());
    if (!directory) return false;
    while (const char* name = nextName(directory.get())) names.emplace_back(name);
    if (errno == 0) return true;
    const int error = errno;
    names.clear();
    errno = error;
    return false;
}

bool File::mkdir() const { return ::mkdir(_path.c_str(), kDirectoryMode) == 0; }

bool File::mkdirs() const {
    for (std::size_t end = 0; end != std::string::npos;) {
        end = _path.find('/', end + 1);
        const std::string prefix = _path.substr(0, end);
        // Whatever fails on the way shows in the last step.
        static_cast<void>(::mkdir(prefix.c_str(), kDirectoryMode));
    }
    const int error = errno;
    const bool there = isDirectory();
    errno = error;
    return there;
}

bool File::remove() const { return std::remove(_path.c_str()) == 0; }

bool File::removeAll() const {
    const std::string name = getName();
    if (name.empty() || isDotName(name)) {
        errno = EINVAL;
        return false;
    }
    return TreeRemover().run(_path.c_str());
}

bool File::renameTo(const File& target) const { return std::rename(_path.c_str(), target._path.c_str()) == 0; }

OwnFd File::createTemporary(std::string& path, std::string_view prefix) {
    path.assign(kTemporaryDirectory).append(prefix).append(kTemporaryTemplate);
    OwnFd fd = createTemporaryFile(path.data());
    if (!fd) path.clear();
    return fd;
}

}  // namespace ZOV_SPACE
