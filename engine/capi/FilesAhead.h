// FilesAhead: the small files of a list, some of them read together before their turn comes, and the digests of those
// whose size some signature has. What is no small file, or could not be read whole at once, is left to whoever scans.
//   Owns:    at most kTogether contents, in kMostBytes of memory.
//   Threads: one at a time.
#ifndef ENGINE_CAPI_FILESAHEAD_H
#define ENGINE_CAPI_FILESAHEAD_H

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "BmList.h"
#include "Md5.h"

class FilesAhead {
public:
    static constexpr std::size_t kTogether = 32;
    static constexpr std::size_t kLargestFile = std::size_t{64} << 10;
    static constexpr std::size_t kMostBytes = 4 * kLargestFile;

    struct File {
        std::span<const char> bytes;
        std::optional<Md5Digest> digest = {};
    };

    // Both are borrowed.
    FilesAhead(const BmList& digests, std::span<const char* const> paths) : _digests(digests), _paths(paths) {}

    // The file of the path with that number, and those behind it from now on; null for one that is left to the caller.
    // Valid until a call with a higher one. Throws std::bad_alloc.
    const File* at(std::size_t index);

private:
    void readFrom(std::size_t index);
    std::optional<File> read(const char* path);
    void digest();

    const BmList& _digests;
    std::span<const char* const> _paths;
    std::vector<std::optional<File>> _files;
    std::size_t _first = 0;  // Of the paths, the one of the first file.
    std::unique_ptr<char[]> _bytes;
    std::size_t _used = 0;  // Of the bytes.
};

#endif  // ENGINE_CAPI_FILESAHEAD_H
