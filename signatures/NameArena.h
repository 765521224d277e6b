// NameArena: keeps the names of millions of signatures, NUL-terminated, in a few large blocks. A name costs its length
// plus one byte; its address stays valid until the arena is cleared. Filled by one thread, then only read.
#ifndef SIGNATURES_NAMEARENA_H
#define SIGNATURES_NAMEARENA_H

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

class NameArena {
public:
    const char* store(std::string_view name) {
        if (_left <= name.size()) {
            const std::size_t size = std::max(kBlockSize, name.size() + 1);
            _blocks.push_back(std::make_unique_for_overwrite<char[]>(size));
            _next = _blocks.back().get();
            _left = size;
        }
        char* const copy = _next;
        *std::copy(name.begin(), name.end(), copy) = '\0';
        _next += name.size() + 1;
        _left -= name.size() + 1;
        return copy;
    }

    void clear() { *this = NameArena(); }

private:
    static constexpr std::size_t kBlockSize = 64 * 1024;

    std::vector<std::unique_ptr<char[]>> _blocks;
    char* _next = nullptr;
    std::size_t _left = 0;
};

#endif  // SIGNATURES_NAMEARENA_H
