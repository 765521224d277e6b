// LargePages.h: memory in pages of 2 MiB, where the system gives them. A look at a random place of something larger
// than the processor's table of page addresses covers then waits for the data only, not for the data's address too, and
// memory that is filled from end to end costs one page fault where it cost 512.
#ifndef COMMON_STL_LARGEPAGES_H
#define COMMON_STL_LARGEPAGES_H

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

namespace ZOV_SPACE {

constexpr std::size_t kLargePage = std::size_t{2} << 20;  // Bytes.

// Asks for large pages wherever whole ones fit in the memory, for what is not touched yet. Only a wish: never fails.
void preferLargePages(void* memory, std::size_t bytes);

// Whole large pages, at an address that is a multiple of kLargePage; untouched ones cost no memory. Throws
// std::bad_alloc.
void* mapLargePages(std::size_t bytes);
void unmapLargePages(void* pages, std::size_t bytes);

// For containers. Requests of less than a large page take ordinary memory. Elements are left uninitialised unless their
// type says otherwise.
template <typename T>
class LargePageAllocator {
public:
    using value_type = T;

    LargePageAllocator() = default;
    template <typename U>
    LargePageAllocator(const LargePageAllocator<U>&) {}  // NOLINT(google-explicit-constructor): allocators convert.

    T* allocate(std::size_t n) {
        if (n < kLargePage / sizeof(T)) return std::allocator<T>().allocate(n);
        if (n > PTRDIFF_MAX / sizeof(T)) throw std::bad_array_new_length();
        return static_cast<T*>(mapLargePages(n * sizeof(T)));
    }
    void deallocate(T* memory, std::size_t n) {
        if (n < kLargePage / sizeof(T)) return std::allocator<T>().deallocate(memory, n);
        unmapLargePages(memory, n * sizeof(T));
    }

    template <typename U, typename... Arguments>
    void construct(U* place, Arguments&&... arguments) {
        if constexpr (sizeof...(Arguments) == 0) {
            ::new (static_cast<void*>(place)) U;
        } else {
            ::new (static_cast<void*>(place)) U(std::forward<Arguments>(arguments)...);
        }
    }

    bool operator==(const LargePageAllocator&) const { return true; }
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_LARGEPAGES_H
