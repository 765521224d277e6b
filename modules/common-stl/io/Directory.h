// Directory.h: what lists and walks of directories share.
#ifndef COMMON_STL_IO_DIRECTORY_H
#define COMMON_STL_IO_DIRECTORY_H

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "NoCancel.h"
#include "io/FileIo.h"

namespace ZOV_SPACE {

inline constexpr mode_t kDirectoryMode = 0755;

struct CloseDirectory {
    void operator()(DIR* directory) const {
        const NoCancel guard;
        ::closedir(directory);
    }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

inline Directory openDirectory(int parent, const char* path, int extraFlags = 0) {
    OwnFd fd = openFileAt(parent, path, O_RDONLY | O_DIRECTORY | extraFlags);
    if (!fd) return nullptr;
    Directory directory(::fdopendir(fd.get()));
    if (directory) fd.release();
    return directory;
}

inline bool isDotName(std::string_view name) { return name == "." || name == ".."; }

// The next entry's name but "." and ".."; null at the end, with errno 0, and on failure, with errno set.
inline const char* nextName(DIR* directory) {
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(directory);
        if (!entry) return nullptr;
        if (!isDotName(entry->d_name)) return entry->d_name;
    }
}

inline std::optional<struct stat> statusOf(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return std::nullopt;
    return status;
}

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_IO_DIRECTORY_H
