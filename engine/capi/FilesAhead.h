// FilesAhead: the small files of a list, some of them read together before their turn comes, and the digests of those
// whose size some signature has.
//   Owns:    at most SmallFiles::kTogether contents, in SmallFiles::kMostBytes of memory.
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
#include "SmallFiles.h"

// A content in memory, with its digest where one is wanted.
struct ContentAhead {
    std::span<const char> bytes;
    std::optional<Md5Digest> digest = {};
};

// Gives those contents their digests whose size some signature has. Throws std::bad_alloc.
void digestThose(std::span<ContentAhead> contents, const BmList& signatures);

class FilesAhead {
public:
    // Both are borrowed.
    FilesAhead(const BmList& digests, std::span<const char* const> paths) : _digests(digests), _paths(paths) {}

    // The file of the path with that number, and those behind it from now on; null for one that is left to the caller.
    // Valid until a call with a higher one. Throws std::bad_alloc.
    const ContentAhead* at(std::size_t index);

private:
    void readFrom(std::size_t index);

    const BmList& _digests;
    std::span<const char* const> _paths;
    std::unique_ptr<char[]> _room;
    std::optional<SmallFiles> _files;
    std::vector<ContentAhead> _contents;
    std::vector<ContentAhead*> _byPath;
    std::size_t _first = 0;  // Of the paths, the one of the first file.
};

#endif  // ENGINE_CAPI_FILESAHEAD_H
