// SmallFiles: the bytes of small files that are about to be scanned, some of them read together into memory that the
// owner gives. What is no small file, or could not be read whole at once, is left to whoever scans.
//   Borrows: the memory.
//   Threads: one at a time.
#ifndef ENGINE_CAPI_SMALLFILES_H
#define ENGINE_CAPI_SMALLFILES_H

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

class SmallFiles {
public:
    static constexpr std::size_t kTogether = 32;
    static constexpr std::size_t kLargestFile = std::size_t{64} << 10;
    static constexpr std::size_t kMostBytes = 4 * kLargestFile;

    // REQUIRES: room for kMostBytes.
    explicit SmallFiles(std::span<char> room) : _room(room) {}

    // Forgets what it has, and reads the files that these paths begin with: at least one, no more than kTogether, and
    // up to one that may take long, since much may happen meanwhile to those behind it. Throws std::bad_alloc.
    void read(std::span<const char* const> paths);

    // Of the paths in turn; nothing for one that is left to the caller. Valid until the next read.
    const std::vector<std::optional<std::span<const char>>>& contents() const { return _contents; }

private:
    std::optional<std::span<const char>> readOne(const char* path);

    std::span<char> _room;
    std::size_t _used = 0;
    std::vector<std::optional<std::span<const char>>> _contents;
};

#endif  // ENGINE_CAPI_SMALLFILES_H
