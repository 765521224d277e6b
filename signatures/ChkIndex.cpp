// How the index is built: the records are sorted by offset type, parameter, slot, check string and number, so that each
// plane, each group and the check strings of a group lie together and in order; one pass then cuts them up. A plane
// keeps arrays of one member each instead of an array of groups: the search reads slots and filters of thousands of
// groups and little else.
//
// How it is searched: a base, such as the entry point, is added to a plane's slots; the groups whose four bytes lie in
// the content are a range of them, found by two binary searches. For each, the four bytes are hashed to one of 64 bits
// by multiplying with 2^32 divided by the golden ratio (Knuth, The Art of Computer Programming, 6.4), whose product has
// well-mixed high bits. A group without that bit cannot have the check string; the others look it up by binary search.
#include "ChkIndex.h"

#include <algorithm>
#include <tuple>

#include "ByteOrder.h"

namespace {

struct Entry {
    std::uint8_t offsetType;
    std::uint8_t offsetParameter;
    std::int16_t slot;
    std::uint32_t checkString;
    std::uint32_t record;

    auto plane() const { return std::tie(offsetType, offsetParameter); }
    auto key() const { return std::tie(offsetType, offsetParameter, slot, checkString, record); }
};

// One of 64 bits; the product's highest six depend on all bits of the check string.
std::uint64_t filterBit(std::uint32_t checkString) { return std::uint64_t{1} << ((checkString * 0x9E3779B1U) >> 26); }

// Records whose position cannot resolve are left out: from either end of a file, only forward into it.
std::vector<Entry> sortedEntries(const std::vector<CheckSumPattern>& records) {
    std::vector<Entry> entries;
    entries.reserve(records.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
        const CheckSumPattern& record = records[i];
        if (record.offsetType <= kFromEnd && record.offset1 < 0) continue;
        const auto slot = static_cast<std::int16_t>(record.offsetType == kFromEnd ? -record.offset1 : record.offset1);
        // Elsewhere the parameter means nothing, and records that differ in it alone share a base.
        const std::uint8_t parameter = record.offsetType == kFromSection ? record.offsetParameter : 0;
        entries.push_back({record.offsetType, parameter, slot, record.checkString, static_cast<std::uint32_t>(i)});
    }
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.key() < b.key(); });
    return entries;
}

}  // namespace

ChkIndex::ChkIndex(const std::vector<CheckSumPattern>& records) : _recordCount(records.size()) {
    const std::vector<Entry> entries = sortedEntries(records);
    const Entry* previous = nullptr;
    for (const Entry& entry : entries) {
        const bool newPlane = !previous || entry.plane() != previous->plane();
        if (newPlane) {
            Plane& plane = _planes.emplace_back();
            plane._offsetType = entry.offsetType;
            plane._offsetParameter = entry.offsetParameter;
        }
        Plane& plane = _planes.back();
        if (newPlane || entry.slot != previous->slot) {
            plane._slots.push_back(entry.slot);
            plane._filters.push_back(0);
            plane._firstEntries.push_back(static_cast<std::uint32_t>(plane._records.size()));
        }
        plane._filters.back() |= filterBit(entry.checkString);
        plane._checkStrings.push_back(entry.checkString);
        plane._records.push_back(entry.record);
        previous = &entry;
    }
    for (Plane& plane : _planes) {
        plane._firstEntries.push_back(static_cast<std::uint32_t>(plane._records.size()));
        plane._slotFilter = SlotFilter(plane._slots, plane._firstEntries, plane._checkStrings);
    }
}

ChkIndex::Plane::Range ChkIndex::Plane::groupsWithin(std::int64_t base, std::int64_t size) const {
    const std::int64_t lowest = -base;
    const std::int64_t beyond = size - static_cast<std::int64_t>(kCheckStringSize) + 1 - base;
    const auto first = std::partition_point(_slots.begin(), _slots.end(), [=](auto slot) { return slot < lowest; });
    const auto last = std::partition_point(first, _slots.end(), [=](auto slot) { return slot < beyond; });
    return {static_cast<std::size_t>(first - _slots.begin()), static_cast<std::size_t>(last - _slots.begin())};
}

std::size_t ChkIndex::Plane::windowLength(Range range) const {
    return static_cast<std::size_t>(_slots[range.last - 1] - _slots[range.first]) + kCheckStringSize;
}

void ChkIndex::Plane::collect(Range range, std::span<const char> window, std::vector<std::uint32_t>& candidates) const {
    const int start = _slots[range.first];
    const auto bytesOf = [&](std::size_t group) { return window.data() + (_slots[group] - start); };
    if (_slotFilter.empty()) {
        for (std::size_t group = range.first; group < range.last; ++group) testGroup(group, bytesOf(group), candidates);
        return;
    }
    std::vector<std::uint32_t> groups;
    groups.reserve(64);  // Chance hits, rarely more.
    _slotFilter.collect(range.first, range.last, window, groups);
    for (const std::uint32_t group : groups) testGroup(group, bytesOf(group), candidates);
}

void ChkIndex::Plane::testGroup(std::size_t group, const char* bytes, std::vector<std::uint32_t>& candidates) const {
    const std::uint32_t checkString = ZOV_SPACE::loadU32(bytes);
    if (!(_filters[group] & filterBit(checkString))) return;
    const auto begin = _checkStrings.begin() + _firstEntries[group];
    const auto end = _checkStrings.begin() + _firstEntries[group + 1];
    const auto [first, last] = std::equal_range(begin, end, checkString);
    for (auto entry = first; entry != last; ++entry) {
        candidates.push_back(_records[static_cast<std::size_t>(entry - _checkStrings.begin())]);
    }
}

std::size_t ChkIndex::Plane::memoryBytes() const {
    return _slots.capacity() * sizeof(_slots[0]) + _filters.capacity() * sizeof(_filters[0]) +
           _firstEntries.capacity() * sizeof(_firstEntries[0]) + _checkStrings.capacity() * sizeof(_checkStrings[0]) +
           _records.capacity() * sizeof(_records[0]) + _slotFilter.memoryBytes();
}

std::size_t ChkIndex::memoryBytes() const {
    std::size_t bytes = _planes.capacity() * sizeof(_planes[0]);
    for (const Plane& plane : _planes) bytes += plane.memoryBytes();
    return bytes;
}
