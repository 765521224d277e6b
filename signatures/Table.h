// Table: an array that is searched: its own, or a part of memory that somebody else keeps, such as a mapped file.
// Searches see no difference and pay for none. Only its own can be filled. Immutable once filled, then shared by any
// number of threads.
#ifndef SIGNATURES_TABLE_H
#define SIGNATURES_TABLE_H

#include <cstddef>
#include <memory>
#include <span>
#include <utility>
#include <vector>

template <class T, class Allocator = std::allocator<T>>
class Table {
public:
    Table() = default;
    explicit Table(std::size_t size) : _own(size), _elements(_own) {}
    Table(std::size_t size, const T& element) : _own(size, element), _elements(_own) {}
    // Borrows.
    explicit Table(std::span<const T> elements) : _elements(elements) {}
    Table(Table&& other) noexcept
        : _own(std::move(other._own)), _elements(std::exchange(other._elements, std::span<const T>())) {}
    Table& operator=(Table&& other) noexcept {
        _own = std::move(other._own);
        _elements = std::exchange(other._elements, std::span<const T>());
        return *this;
    }

    const T& operator[](std::size_t i) const { return _elements[i]; }
    auto begin() const { return _elements.begin(); }
    auto end() const { return _elements.end(); }
    const T& front() const { return _elements.front(); }
    const T& back() const { return _elements.back(); }
    std::size_t size() const { return _elements.size(); }
    bool empty() const { return _elements.empty(); }
    std::span<const T> elements() const { return _elements; }

    // REQUIRES: nothing is borrowed.
    T& at(std::size_t i) { return _own[i]; }
    void push_back(const T& element) {
        _own.push_back(element);
        _elements = _own;
    }

    // Of its own.
    std::size_t memoryBytes() const { return _own.capacity() * sizeof(T); }

private:
    std::vector<T, Allocator> _own;
    std::span<const T> _elements;
};

#endif  // SIGNATURES_TABLE_H
