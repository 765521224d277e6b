// ChkIndex: the checksum records of one target, arranged so that a scan need not try each of them.
//
// A record can match only where its 4-byte check string stands at its first position. Records with the same offset type
// and parameter form a plane: their first positions all count from one base, so the bytes that they look at lie in one
// window of at most 64 KiB. Within a plane, records with the same first offset form a group: one 4-byte read answers
// for all of them. Each group has a 64-bit filter, one bit for each check string's hash, and its check strings in
// ascending order behind it; so most groups are ruled out by one multiplication and a bit test. A plane with many
// groups asks a SlotFilter first, which looks at 32 positions at a time.
//
// The index only finds candidates. Whether one matches is for the caller to verify.
// Immutable once built or mapped; shared by any number of threads.
#ifndef SIGNATURES_CHKINDEX_H
#define SIGNATURES_CHKINDEX_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "CheckSumPattern.h"
#include "SlotFilter.h"
#include "Table.h"
#include "TableFile.h"

class ChkIndex {
public:
    static constexpr std::size_t kCheckStringSize = 4;

    // All records of one offset type and parameter. A slot is a group's first position relative to the base that the
    // type and parameter resolve to: the offset itself, or its negative for offsets that count from the end.
    class Plane {
    public:
        std::uint8_t offsetType() const { return _offsetType; }
        std::uint8_t offsetParameter() const { return _offsetParameter; }

        // The groups whose check string lies within the positions 0 to size - 1, as numbers [first, last).
        struct Range {
            std::size_t first;
            std::size_t last;
            bool empty() const { return first == last; }
        };
        Range groupsWithin(std::int64_t base, std::int64_t size) const;

        // Where, relative to the base, the window of these groups begins, and its length in bytes.
        // REQUIRES: the range is not empty.
        std::int32_t windowStart(Range range) const { return _slots[range.first]; }
        std::size_t windowLength(Range range) const;

        // Appends the numbers of the records whose check string stands at its place in the window, in no order and some
        // of them twice.
        // REQUIRES: window has windowLength(range) bytes.
        void collect(Range range, std::span<const char> window, std::vector<std::uint32_t>& candidates) const;

        std::size_t memoryBytes() const;

    private:
        friend class ChkIndex;

        void save(TableSink& sink) const;
        void map(TableSource& source);

        void testGroup(std::size_t group, const char* bytes, std::vector<std::uint32_t>& candidates) const;

        std::uint8_t _offsetType = 0;
        std::uint8_t _offsetParameter = 0;
        Table<std::int16_t> _slots;          // By group, ascending.
        Table<std::uint64_t> _filters;       // By group.
        Table<std::uint32_t> _firstEntries;  // By group, and one more: where its entries begin.
        Table<std::uint32_t> _checkStrings;  // By entry, ascending within a group.
        Table<std::uint32_t> _records;       // By entry.
        SlotFilter _slotFilter;              // Over all groups; empty when they are few.
    };

    ChkIndex() = default;
    // Record numbers are indexes into `records`.
    explicit ChkIndex(std::span<const CheckSumRecord> records);

    std::size_t recordCount() const { return _recordCount; }
    std::span<const Plane> planes() const { return _planes; }
    std::size_t memoryBytes() const;

    void save(TableSink& sink) const;
    // Throws Exception. Looks at the slots, which are few, and leaves everything else to whoever searches: collect()
    // never leaves them, but may give numbers that no record has.
    // REQUIRES: the index is empty.
    void map(TableSource& source, std::size_t recordCount);

private:
    std::size_t _recordCount = 0;
    std::vector<Plane> _planes;
};

#endif  // SIGNATURES_CHKINDEX_H
