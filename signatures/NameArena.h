// NameArena: keeps the names of millions of signatures, NUL-terminated, in a few large blocks. A name costs its length
// plus one byte; its address stays valid until the arena is cleared. Filled by one thread, then only read.
#ifndef SIGNATURES_NAMEARENA_H
#define SIGNATURES_NAMEARENA_H

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

#include "LargePages.h"

class NameArena {
public:
    const char* store(std::string_view name) {
        if (_left <= name.size()) {
            const std::size_t usual = _blocks.size() < kSmallBlocks ? kSmallBlock : ZOV_SPACE::kLargePage;
            _blocks.emplace_back(std::max(usual, name.size() + 1));
            _next = _blocks.back().data();
            _left = _blocks.back().size();
        }
        char* const copy = _next;
        *std::copy(name.begin(), name.end(), copy) = '\0';
        _next += name.size() + 1;
        _left -= name.size() + 1;
        return copy;
    }

    void clear() { *this = NameArena(); }

    std::size_t memoryBytes() const {
        std::size_t bytes = _blocks.capacity() * sizeof(decltype(_blocks)::value_type);
        for (const auto& block : _blocks) bytes += block.capacity();
        return bytes;
    }

private:
    // So much for few signatures; for more, every block is a large page.
    static constexpr std::size_t kSmallBlock = 64 * 1024;
    static constexpr std::size_t kSmallBlocks = 16;

    std::vector<std::vector<char, ZOV_SPACE::LargePageAllocator<char>>> _blocks;
    char* _next = nullptr;
    std::size_t _left = 0;
};

#endif  // SIGNATURES_NAMEARENA_H
