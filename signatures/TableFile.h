// TableFile.h: how the tables of a set go to a file and come back: one behind the other, each of elements that are the
// same on every machine, so in the order in which they were written. What a class writes it takes back in that order.
#ifndef SIGNATURES_TABLEFILE_H
#define SIGNATURES_TABLEFILE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

#include "Table.h"

// Where tables go. What cannot be written is the implementation's to remember.
class TableSink {
public:
    TableSink() = default;
    TableSink(const TableSink&) = delete;
    TableSink& operator=(const TableSink&) = delete;
    virtual ~TableSink() = default;

    // What is appended from here on is the next table.
    virtual void beginTable(std::size_t elementSize) = 0;
    virtual void append(std::span<const std::byte> bytes) = 0;

    template <class T>
    void append(std::span<const T> elements) {
        // Padding would be bytes of unknown content.
        static_assert(std::has_unique_object_representations_v<T>);
        append(std::as_bytes(elements));
    }

    template <class T>
    void table(std::span<const T> elements) {
        beginTable(sizeof(T));
        append(elements);
    }
};

// Where they come from. Throws Exception for what cannot be right.
class TableSource {
public:
    static constexpr std::size_t kAlignment = 64;  // Of every table's first element.

    TableSource() = default;
    TableSource(const TableSource&) = delete;
    TableSource& operator=(const TableSource&) = delete;
    virtual ~TableSource() = default;

    // The next table's bytes, a multiple of the element's. They stay as long as whatever is mapped does.
    virtual std::span<const std::byte> nextTable(std::size_t elementSize) = 0;

    template <class T>
    std::span<const T> table() {
        static_assert(alignof(T) <= kAlignment);
        const auto bytes = nextTable(sizeof(T));
        return {reinterpret_cast<const T*>(bytes.data()), bytes.size() / sizeof(T)};
    }

    // Refuses the file unless so.
    static void require(bool isSound);
};

#endif  // SIGNATURES_TABLEFILE_H
