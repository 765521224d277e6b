// What the engine calls of this class is in io/File.cpp.
#include "io/File.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "io/Directory.h"

namespace ZOV_SPACE {
namespace {

constexpr std::string_view kTemporaryDirectory = "/tmp/";
constexpr std::string_view kTemporaryTemplate = "XXXXXX";

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

std::string File::getName() const { return _path.substr(_path.rfind('/') + 1); }

std::string File::getParent() const {
    const std::size_t slash = _path.rfind('/');
    if (slash == std::string::npos) return "";
    return slash == 0 ? "/" : _path.substr(0, slash);
}

std::int64_t File::length() const {
    const auto status = statusOf(_path);
    return status ? status->st_size : -1;
}

bool File::mkdir() const { return ::mkdir(_path.c_str(), kDirectoryMode) == 0; }

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
