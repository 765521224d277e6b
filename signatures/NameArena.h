// NameArena: keeps the names of millions of signatures, NUL-terminated, in a few large blocks, or finds them in a file
// that has them. A name costs its length plus one byte, rounded up to a multiple of four, and is known by a number that
// is the same in memory and in the file. Filled by one thread, then only read.
#ifndef SIGNATURES_NAMEARENA_H
#define SIGNATURES_NAMEARENA_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <span>
#include <string_view>
#include <vector>

#include "LargePages.h"
#include "TableFile.h"

class NameArena {
public:
    // The name's number. Throws std::bad_alloc, also beyond 16 GiB of names and for one of 64 KiB, which no file has.
    std::uint32_t store(std::string_view name) {
        const std::size_t taken = takenBy(name.size());
        if (_left < taken) addBlock(taken);
        if (position() / kUnit > UINT32_MAX) throw std::bad_alloc();
        std::copy(name.begin(), name.end(), _next);
        return keep(name.size());
    }

    // Where a name of up to `most` bytes, its NUL among them, can be put together, or null where store() has to make
    // room first. What is left there is overwritten by the next name unless keep() is called.
    char* room(std::size_t most) const { return _left >= most && position() / kUnit <= UINT32_MAX ? _next : nullptr; }

    // The number of the name of that length that stands where there is room.
    std::uint32_t keep(std::size_t length) {
        const auto number = static_cast<std::uint32_t>(position() / kUnit);
        const std::size_t taken = takenBy(length);
        std::fill(_next + length, _next + taken, '\0');
        _next += taken;
        _left -= taken;
        return number;
    }

    // Valid as long as the arena, and as the file where they come from one. A file that is damaged may have any number.
    const char* at(std::uint32_t number) const {
        const std::uint64_t position = std::uint64_t{number} * kUnit;
        if (position >= startOf(_starts.size()) - _left) return "(damaged)";
        const std::size_t block = position < kSmallTotal
                                      ? static_cast<std::size_t>(position / kSmallBlock)
                                      : kSmallBlocks + static_cast<std::size_t>((position - kSmallTotal) / kLargeBlock);
        return _starts[block] + (position - startOf(block));
    }

    void clear() { *this = NameArena(); }

    void save(TableSink& sink) const {
        sink.beginTable(1);
        for (std::size_t i = 0; i < _starts.size(); ++i) {
            const std::size_t unused = i + 1 == _starts.size() ? _left : 0;
            sink.append(std::span(_starts[i], sizeOf(i) - unused));
        }
    }

    // REQUIRES: the arena is empty. A name ends before the table does, whatever its number.
    void map(TableSource& source) {
        const auto names = source.table<char>();
        TableSource::require(names.size() % kUnit == 0 && (names.empty() || names.back() == '\0'));
        while (startOf(_starts.size()) < names.size()) _starts.push_back(names.data() + startOf(_starts.size()));
        _left = static_cast<std::size_t>(startOf(_starts.size()) - names.size());
    }

    std::size_t memoryBytes() const {
        std::size_t bytes = _blocks.capacity() * sizeof(Block) + _starts.capacity() * sizeof(_starts[0]);
        for (const Block& block : _blocks) bytes += block.capacity();
        return bytes;
    }

private:
    using Block = std::vector<char, ZOV_SPACE::LargePageAllocator<char>>;

    static constexpr std::size_t kUnit = 4;  // Bytes that numbers count in.
    // So much for few signatures; for more, every block is a large page. Files depend on these numbers.
    static constexpr std::size_t kSmallBlock = 64 * 1024;
    static constexpr std::size_t kSmallBlocks = 16;
    static constexpr std::size_t kSmallTotal = kSmallBlock * kSmallBlocks;
    static constexpr std::size_t kLargeBlock = ZOV_SPACE::kLargePage;

    static std::size_t takenBy(std::size_t length) { return (length + kUnit) / kUnit * kUnit; }
    // Of the next name.
    std::uint64_t position() const { return startOf(_starts.size()) - _left; }

    static std::size_t sizeOf(std::size_t block) { return block < kSmallBlocks ? kSmallBlock : kLargeBlock; }

    // The position, among all names, that a block begins at.
    static std::uint64_t startOf(std::size_t block) {
        const auto small = std::uint64_t{std::min(block, kSmallBlocks)};
        return small * kSmallBlock + (block - small) * kLargeBlock;
    }

    void addBlock(std::size_t taken) {
        const std::size_t size = sizeOf(_starts.size());
        if (taken > size) throw std::bad_alloc();
        _starts.push_back(_blocks.emplace_back(size).data());
        std::fill_n(_next, _left, '\0');  // Positions skip what is left of the last one.
        _next = _blocks.back().data();
        _left = size;
    }

    std::vector<Block> _blocks;
    std::vector<const char*> _starts;  // Of the blocks, which lie behind each other where they come from a file.
    char* _next = nullptr;
    std::size_t _left = 0;  // Bytes that the last block has room for.
};

#endif  // SIGNATURES_NAMEARENA_H
