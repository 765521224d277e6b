#include "FilesAhead.h"

#include <sys/stat.h>

#include "Md5Lanes.h"
#include "io/FileIo.h"
#include "io/RegularFile.h"

const FilesAhead::File* FilesAhead::at(std::size_t index) {
    if (index < _first || index - _first >= _files.size()) readFrom(index);
    const auto& file = _files[index - _first];
    return file ? &*file : nullptr;
}

// Up to one that may take long, since much may happen meanwhile to those behind it.
void FilesAhead::readFrom(std::size_t index) {
    _files.clear();
    _first = index;
    _used = 0;
    if (!_bytes) _bytes = std::make_unique_for_overwrite<char[]>(kMostBytes);
    do {
        _files.push_back(read(_paths[index++]));
    } while (index < _paths.size() && _files.back() && _files.size() < kTogether && kMostBytes - _used >= kLargestFile);
    digest();
}

std::optional<FilesAhead::File> FilesAhead::read(const char* path) {
    // Opening a device or a pipe may do something, and large files are opened in their turn.
    struct stat status;
    if (::stat(path, &status) != 0 || !S_ISREG(status.st_mode) || status.st_size > std::int64_t{kLargestFile}) {
        return std::nullopt;
    }
    const ZOV_SPACE::OwnFd file = ZOV_SPACE::openForReading(path);
    const auto size = file ? ZOV_SPACE::regularFileSize(file.get()) : std::nullopt;
    if (!size || *size == 0 || *size > kLargestFile) return std::nullopt;
    const std::span<char> bytes(_bytes.get() + _used, static_cast<std::size_t>(*size));
    if (ZOV_SPACE::readAllAt(file.get(), bytes.data(), bytes.size(), 0) != std::ssize(bytes)) return std::nullopt;
    _used += bytes.size();
    return File{bytes};
}

void FilesAhead::digest() {
    if (_digests.count() == 0) return;
    std::vector<Md5Content> contents;
    std::vector<File*> files;
    for (auto& file : _files) {
        if (!file || !_digests.verifyFileSize(static_cast<std::uint32_t>(file->bytes.size()))) continue;
        contents.push_back({file->bytes});
        files.push_back(&*file);
    }
    digestTogether(contents);
    for (std::size_t i = 0; i < files.size(); ++i) files[i]->digest = contents[i].digest;
}
