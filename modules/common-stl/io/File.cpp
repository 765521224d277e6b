#include "io/File.h"

#include <utility>

#include "Directory.h"

namespace ZOV_SPACE {

File::File(std::string path) : _path(std::move(path)) {
    if (_path.find('\0') != std::string::npos) _path.clear();
    while (_path.size() > 1 && _path.back() == '/') _path.pop_back();
}

File::File(const std::string& parent, const std::string& name)
    : File(parent.empty() || parent.back() == '/' ? parent + name : parent + "/" + name) {}

bool File::exists() const { return statusOf(_path).has_value(); }

bool File::isDirectory() const {
    const auto status = statusOf(_path);
    return status && S_ISDIR(status->st_mode);
}

bool File::isFile() const {
    const auto status = statusOf(_path);
    return status && S_ISREG(status->st_mode);
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

}  // namespace ZOV_SPACE
