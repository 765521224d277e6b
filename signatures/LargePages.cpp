#include "LargePages.h"

#include <sys/mman.h>

#include <cstdint>

namespace {

constexpr std::size_t roundedUp(std::size_t n) { return (n + kLargePage - 1) & ~(kLargePage - 1); }

}  // namespace

void* mapLargePages(std::size_t bytes) {
    const std::size_t size = roundedUp(bytes);
    if (size < bytes || size > SIZE_MAX - kLargePage) throw std::bad_alloc();
    // Enough to find an aligned part of the size in; what is around that goes back at once.
    void* const mapped = ::mmap(nullptr, size + kLargePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) throw std::bad_alloc();
    char* const begin = static_cast<char*>(mapped);
    const std::size_t before =
        roundedUp(reinterpret_cast<std::uintptr_t>(begin)) - reinterpret_cast<std::uintptr_t>(begin);
    if (before > 0) ::munmap(begin, before);
    if (before < kLargePage) ::munmap(begin + before + size, kLargePage - before);
    ::madvise(begin + before, size, MADV_HUGEPAGE);  // A wish; without it the memory is only slower.
    return begin + before;
}

void unmapLargePages(void* pages, std::size_t bytes) { ::munmap(pages, roundedUp(bytes)); }
