// LargePageAllocator: memory for tables larger than the processor's table of page addresses covers, in pages of 2 MiB
// where the system gives them. A look at a random place then waits for the data only, not for the data's address too.
// Elements are left uninitialised unless their type says otherwise. Smaller requests take ordinary memory.
#ifndef SIGNATURES_LARGEPAGES_H
#define SIGNATURES_LARGEPAGES_H

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

constexpr std::size_t kLargePage = std::size_t{2} << 20;  // Bytes; a request of at least this much gets large pages.

// Whole large pages, at an address that is a multiple of kLargePage; untouched ones cost no memory. Throws
// std::bad_alloc.
void* mapLargePages(std::size_t bytes);
void unmapLargePages(void* pages, std::size_t bytes);

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

#endif  // SIGNATURES_LARGEPAGES_H
