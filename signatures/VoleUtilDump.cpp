// Dumping of buffers below the host's dump directory. Names come out of archives, and others may write to the directory
// too: below it nothing is reached by a path, only from descriptor to descriptor, without following links.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <vector>

#include "Exception.h"
#include "Text.h"
#include "VoleUtil.h"
#include "io/BufferBase.h"
#include "io/File.h"
#include "io/FileIo.h"
#include "util/Diag.h"
#include "utils/Crc.h"

using ZOV_SPACE::BufferBase;
using ZOV_SPACE::OwnFd;

namespace {

constexpr diag::Unit kDiag{"VoleUtil"};

constexpr std::size_t kLongestComponent = 200;  // Bytes.
constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;
constexpr int kDumpBlock = 64 * 1024;  // Bytes per write.

// A long component keeps its start, and the checksum of all of it, so that two long names rarely meet in one file.
std::string shortened(const std::string& component) {
    if (component.size() <= kLongestComponent) return component;
    ZOV_SPACE::Iso3309Crc crc;
    char mark[10];  // "~" and 8 digits
    std::snprintf(mark, sizeof mark, "~%08x", crc.add(component.data(), static_cast<unsigned>(component.size())));
    return component.substr(0, kLongestComponent - (sizeof mark - 1)) + mark;
}

// The components of a path, without those that lead nowhere or upwards.
std::vector<std::string> componentsOf(const std::string& path) {
    std::vector<std::string> components;
    ZOV_SPACE::text::Fields parts(path, "/");
    for (std::string_view part; parts.next(part);) {
        if (!part.empty() && part != "." && part != "..") components.push_back(shortened(std::string(part)));
    }
    return components;
}

// Opens the dump directory, which may be a link and is made, with its parents, when there is none.
OwnFd openDumpDirectory(const std::string& path) {
    constexpr int kFlags = O_RDONLY | O_DIRECTORY;
    OwnFd directory = ZOV_SPACE::openFile(path.c_str(), kFlags);
    if (directory || errno != ENOENT) return directory;
    ZOV_SPACE::File(path).mkdirs();  // Whether it worked shows next.
    return ZOV_SPACE::openFile(path.c_str(), kFlags);
}

OwnFd enterFolder(const OwnFd& parent, const std::string& name) {
    ::mkdirat(parent.get(), name.c_str(), kFolderMode);  // Whether it worked, or there was one, shows next.
    return ZOV_SPACE::openFileAt(parent.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
}

OwnFd createFile(const OwnFd& folder, const std::string& name) {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK;
    OwnFd file = ZOV_SPACE::openFileAt(folder.get(), name.c_str(), kFlags, kFileMode);
    struct stat status;
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return OwnFd();
    return file;
}

// A dump is an aid only: what cannot be read or written is left out without a message.
void writeContent(int fd, BufferBase& buffer) {
    const auto block = std::make_unique<char[]>(kDumpBlock);
    int count = 0;
    for (long position = 0; (count = buffer.read(position, block.get(), kDumpBlock)) > 0; position += count) {
        if (!ZOV_SPACE::writeAll(fd, block.get(), static_cast<std::size_t>(count))) return;
    }
}

std::string joined(const std::string& directory, const std::vector<std::string>& components, std::size_t count) {
    std::string path = directory;
    if (!path.ends_with('/')) path += '/';
    for (std::size_t i = 0; i < count; ++i) {
        if (i > 0) path += '/';
        path += components[i];
    }
    return path;
}

void dump(BufferBase& buffer, const std::string& directory, const std::string& name) {
    const std::vector<std::string> components = componentsOf(name);
    const std::size_t folders = components.empty() ? 0 : components.size() - 1;

    OwnFd folder = openDumpDirectory(directory);
    for (std::size_t i = 0; i < folders && folder; ++i) folder = enterFolder(folder, components[i]);
    if (!folder) {
        kDiag.at().dbg("[dump bufferbase]: mkdir [%s] fail.", joined(directory, components, folders).c_str());
    }

    const std::string path = joined(directory, components, components.size());
    const OwnFd file = folder && !components.empty() ? createFile(folder, components.back()) : OwnFd();
    if (!file) {
        kDiag.at().dbg("Can not dump virtual file to : [%s]", path.c_str());
        return;
    }
    kDiag.at().dbg("[dump bufferbase]: %s", path.c_str());
    writeContent(file.get(), buffer);
}

}  // namespace

void VoleUtil::dumpBufferBase(BufferBase* buffer, const std::string& name) {
    try {
        dumpBufferBase(buffer, name, diag::dumpDirectory());
    } catch (const std::exception&) {
    }
}

void VoleUtil::dumpBufferBase(BufferBase* buffer, const std::string& name, const std::string& directory) {
    if (directory.empty()) return;
    try {
        kDiag.at().dbg("Dump BufferBase >> [%s] @ [%s]", name.c_str(), directory.c_str());
        const std::string text(ZOV_SPACE::text::upTo(name, '\0'));  // A name ends at its first NUL.
        if (buffer && !text.empty()) dump(*buffer, directory, text);
    } catch (const ZOV_SPACE::Exception&) {
    } catch (const std::exception&) {
    }
}

void VoleUtil::DepuratePathname(std::string& path) {
    const auto end = std::unique(path.begin(), path.end(), [](char a, char b) { return a == '/' && b == '/'; });
    path.erase(end, path.end());
}
