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
#include <functional>
#include <tuple>

#include "ByteOrder.h"

namespace {

constexpr std::size_t kMostPlanes = kOffsetTypeCount * 256;  // By type and parameter.

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
std::vector<Entry> sortedEntries(std::span<const CheckSumRecord> records) {
    std::vector<Entry> entries;
    entries.reserve(records.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
        const CheckSumRecord& record = records[i];
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

ChkIndex::ChkIndex(std::span<const CheckSumRecord> records) : _recordCount(records.size()) {
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
        plane._filters.at(plane._filters.size() - 1) |= filterBit(entry.checkString);
        plane._checkStrings.push_back(entry.checkString);
        plane._records.push_back(entry.record);
        previous = &entry;
    }
    for (Plane& plane : _planes) {
        plane._firstEntries.push_back(static_cast<std::uint32_t>(plane._records.size()));
        plane._slotFilter =
            SlotFilter(plane._slots.elements(), plane._firstEntries.elements(), plane._checkStrings.elements());
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
    for (const std::uint32_t group : groups) {
        // Outside only where a file is damaged.
        if (group >= range.first && group < range.last) testGroup(group, bytesOf(group), candidates);
    }
}

void ChkIndex::Plane::testGroup(std::size_t group, const char* bytes, std::vector<std::uint32_t>& candidates) const {
    const std::uint32_t checkString = ZOV_SPACE::loadU32(bytes);
    if (!(_filters[group] & filterBit(checkString))) return;
    const std::size_t begin = _firstEntries[group], end = _firstEntries[group + 1];
    if (begin > end || end > _checkStrings.size()) return;  // Only where a file is damaged.
    const auto strings = _checkStrings.elements().subspan(begin, end - begin);
    const auto [first, last] = std::equal_range(strings.begin(), strings.end(), checkString);
    for (auto entry = first; entry != last; ++entry) {
        candidates.push_back(_records[begin + static_cast<std::size_t>(entry - strings.begin())]);
    }
}

std::size_t ChkIndex::Plane::memoryBytes() const {
    return _slots.memoryBytes() + _filters.memoryBytes() + _firstEntries.memoryBytes() + _checkStrings.memoryBytes() +
           _records.memoryBytes() + _slotFilter.memoryBytes();
}

void ChkIndex::Plane::save(TableSink& sink) const {
    sink.table(_slots.elements());
    sink.table(_filters.elements());
    sink.table(_firstEntries.elements());
    sink.table(_checkStrings.elements());
    sink.table(_records.elements());
    _slotFilter.save(sink);
}

void ChkIndex::Plane::map(TableSource& source) {
    _slots = Table(source.table<std::int16_t>());
    _filters = Table(source.table<std::uint64_t>());
    _firstEntries = Table(source.table<std::uint32_t>());
    _checkStrings = Table(source.table<std::uint32_t>());
    _records = Table(source.table<std::uint32_t>());
    TableSource::require(_offsetType < kOffsetTypeCount && !_slots.empty() && _slots.size() <= UINT32_MAX);
    TableSource::require(std::adjacent_find(_slots.begin(), _slots.end(), std::greater_equal<>()) == _slots.end());
    TableSource::require(_filters.size() == _slots.size() && _firstEntries.size() == _slots.size() + 1);
    TableSource::require(_checkStrings.size() == _records.size());
    _slotFilter.map(source, _slots.elements());
}

std::size_t ChkIndex::memoryBytes() const {
    std::size_t bytes = _planes.capacity() * sizeof(_planes[0]);
    for (const Plane& plane : _planes) bytes += plane.memoryBytes();
    return bytes;
}

void ChkIndex::save(TableSink& sink) const {
    std::vector<std::uint8_t> types;
    for (const Plane& plane : _planes) types.insert(types.end(), {plane._offsetType, plane._offsetParameter});
    sink.table(std::span<const std::uint8_t>(types));
    for (const Plane& plane : _planes) plane.save(sink);
}

void ChkIndex::map(TableSource& source, std::size_t recordCount) {
    _recordCount = recordCount;
    const auto types = source.table<std::uint8_t>();
    TableSource::require(types.size() % 2 == 0 && types.size() <= 2 * kMostPlanes);
    _planes.resize(types.size() / 2);
    for (std::size_t i = 0; i < _planes.size(); ++i) {
        _planes[i]._offsetType = types[2 * i];
        _planes[i]._offsetParameter = types[2 * i + 1];
        _planes[i].map(source);
    }
}
