#include "SmallFiles.h"

#include <iterator>

#include "io/FileIo.h"
#include "io/RegularFile.h"

void SmallFiles::read(std::span<const char* const> paths) {
    _contents.clear();
    _used = 0;
    for (const char* const path : paths) {
        _contents.push_back(readOne(path));
        if (!_contents.back() || _contents.size() == kTogether || _room.size() - _used < kLargestFile) break;
    }
}

// What is no small file is opened again in its turn, as all files are: it is no more for that than it is.
std::optional<std::span<const char>> SmallFiles::readOne(const char* path) {
    const ZOV_SPACE::OwnFd file = ZOV_SPACE::openForReading(path);
    const auto size = file ? ZOV_SPACE::regularFileSize(file.get()) : std::nullopt;
    if (!size || *size == 0 || *size > kLargestFile) return std::nullopt;
    const std::span<char> bytes = _room.subspan(_used, static_cast<std::size_t>(*size));
    if (ZOV_SPACE::readAllAt(file.get(), bytes.data(), bytes.size(), 0) != std::ssize(bytes)) return std::nullopt;
    _used += bytes.size();
    return bytes;
}
