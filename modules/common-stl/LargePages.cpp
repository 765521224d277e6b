#include "LargePages.h"

#include <sys/mman.h>

#include <cstdint>

namespace ZOV_SPACE {
namespace {

constexpr std::size_t roundedUp(std::size_t n) { return (n + kLargePage - 1) & ~(kLargePage - 1); }

// How far the memory's first whole large page lies behind its begin.
std::size_t toLargePage(const char* begin) {
    const auto address = reinterpret_cast<std::uintptr_t>(begin);
    return roundedUp(address) - address;
}

}  // namespace

void preferLargePages(void* memory, std::size_t bytes) {
    char* const begin = static_cast<char*>(memory);
    const std::size_t before = toLargePage(begin);
    if (bytes < before + kLargePage) return;
    ::madvise(begin + before, (bytes - before) / kLargePage * kLargePage, MADV_HUGEPAGE);
}

void* mapLargePages(std::size_t bytes) {
    const std::size_t size = roundedUp(bytes);
    if (size < bytes || size > SIZE_MAX - kLargePage) throw std::bad_alloc();
    // Enough to find an aligned part of the size in; what is around that goes back at once.
    void* const mapped = ::mmap(nullptr, size + kLargePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) throw std::bad_alloc();
    char* const begin = static_cast<char*>(mapped);
    const std::size_t before = toLargePage(begin);
    if (before > 0) ::munmap(begin, before);
    if (before < kLargePage) ::munmap(begin + before + size, kLargePage - before);
    preferLargePages(begin + before, size);
    return begin + before;
}

void unmapLargePages(void* pages, std::size_t bytes) { ::munmap(pages, roundedUp(bytes)); }

}  // namespace ZOV_SPACE
