#include "FileWalker.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "Messages.h"

namespace {

struct DirCloser {
    void operator()(DIR* dir) const { ::closedir(dir); }
};
using DirStream = std::unique_ptr<DIR, DirCloser>;

enum class Kind { file, folder, other };

Kind kindOfMode(mode_t mode) {
    if (S_ISREG(mode)) return Kind::file;
    return S_ISDIR(mode) ? Kind::folder : Kind::other;
}

Kind kindOf(DIR* dir, const dirent& entry) {
    if (entry.d_type == DT_REG) return Kind::file;
    if (entry.d_type == DT_DIR) return Kind::folder;
    if (entry.d_type != DT_UNKNOWN) return Kind::other;
    struct stat status;
    // What cannot be told apart is handed out, so that somebody says why.
    if (::fstatat(::dirfd(dir), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) return Kind::file;
    return kindOfMode(status.st_mode);
}

bool isSelfOrParent(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

DirStream openDir(const char* path, int extraOpenFlags) {
    const int fd = ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC | extraOpenFlags);
    if (fd < 0) return nullptr;
    DirStream dir(::fdopendir(fd));
    if (!dir) ::close(fd);
    return dir;
}

dev_t deviceOf(DIR* dir) {
    struct stat status {};
    ::fstat(::dirfd(dir), &status);
    return status.st_dev;
}

std::string folderErrorText(int errorNumber) { return "cannot read the folder: " + systemText(errorNumber); }

}  // namespace

FileWalker::FileWalker(std::string root, const WalkRules& rules) : _rules(rules), _path(std::move(root)) {}

bool FileWalker::next() {
    _error.clear();
    if (!std::exchange(_started, true) && startAtRoot()) return true;
    return goOn();
}

bool FileWalker::goOn() {
    while (!_folders.empty()) {
        Folder& folder = _folders.back();
        if (folder.position == folder.entries.size()) {
            _folders.pop_back();
            continue;
        }
        const Entry& entry = folder.entries[folder.position++];
        nameInFolder(folder, entry.name);
        if (_rules.excludes(_path)) continue;
        // A folder that was swapped for a link since it was listed is not followed either.
        if (!entry.isFolder || enterFolder(O_NOFOLLOW)) return true;
    }
    return false;
}

// True when the root itself is to be handed out.
bool FileWalker::startAtRoot() {
    if (_rules.excludes(_path)) return false;
    struct stat status;
    if (::stat(_path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return true;
    _rootDevice = status.st_dev;
    return enterFolder(0);
}

// Reads the folder _path. True when that went wrong, so that _path is to be handed out with _error; what could be
// read of it is walked afterwards.
bool FileWalker::enterFolder(int extraOpenFlags) {
    const DirStream dir = openDir(_path.c_str(), extraOpenFlags);
    if (!dir) {
        _error = folderErrorText(errno);
        return true;
    }
    if (_rules.oneFileSystem && deviceOf(dir.get()) != _rootDevice) return false;
    try {
        _folders.push_back(list(dir.get()));
    } catch (const std::bad_alloc&) {
        _error = folderErrorText(ENOMEM);
    }
    return !_error.empty();
}

FileWalker::Folder FileWalker::list(DIR* dir) {
    Folder folder{_path.size(), {}, 0};
    while (folder.pathLength > 0 && _path[folder.pathLength - 1] == '/') --folder.pathLength;
    errno = 0;
    while (const dirent* entry = ::readdir(dir)) {
        const Kind kind = isSelfOrParent(entry->d_name) ? Kind::other : kindOf(dir, *entry);
        if (kind != Kind::other) folder.entries.push_back({entry->d_name, kind == Kind::folder});
        errno = 0;
    }
    if (errno != 0) _error = folderErrorText(errno);
    std::sort(folder.entries.begin(), folder.entries.end(),
              [](const Entry& a, const Entry& b) { return a.name < b.name; });
    return folder;
}

void FileWalker::nameInFolder(const Folder& folder, const std::string& name) {
    _path.resize(folder.pathLength);
    _path += '/';
    _path += name;
}
