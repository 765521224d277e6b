#include "CheckSumList.h"

#include <new>
#include <numeric>

#include "Raise.h"
#include "RecordText.h"

using ZOV_SPACE::Exception;

std::optional<RecordFault> CheckSumList::append(std::string_view line) {
    CheckSumFields pattern;
    std::string_view name;
    const auto fault = parseCheckSumRecord(line, pattern, name);
    if (!fault) enter(pattern, name);
    return fault;
}

void CheckSumList::enter(const CheckSumFields& pattern, std::string_view name) {
    CheckSumRecord record{pattern};
    try {
        record.name = _names.store(name);
    } catch (const std::bad_alloc&) {
        ZOV_SPACE::raise<ZOV_SPACE::OutOfMemoryException>("fail to new CheckSumPattern.");
    }
    try {
        _records[record.target].push_back(record);
    } catch (const std::bad_alloc&) {
        ZOV_SPACE::raise<ZOV_SPACE::OutOfMemoryException>("fail to new ChkPatternNode");
    }
}

void CheckSumList::addString(const char* line) {
    if (const auto fault = append(line)) ZOV_SPACE::raise<Exception>(fault->message());
}

void CheckSumList::addPattern(const CheckSumPattern& pattern) {
    if (const auto fault = faultOf(pattern)) ZOV_SPACE::raise<Exception>(fault->message());
    enter(pattern, pattern.name);
}

void CheckSumList::index() {
    try {
        for (std::size_t target = 0; target < kTargetCount; ++target) {
            if (!indexOf(static_cast<TARGET_TYPE>(target))) _indexes[target] = ChkIndex(_records[target].elements());
        }
    } catch (const std::bad_alloc&) {
        ZOV_SPACE::raise<ZOV_SPACE::OutOfMemoryException>(" allocate check-sum pattern head fail ");
    }
}

std::span<const CheckSumRecord> CheckSumList::records(TARGET_TYPE target) const {
    if (target >= kTargetCount) return {};
    return _records[target].elements();
}

const ChkIndex* CheckSumList::indexOf(TARGET_TYPE target) const {
    const bool current = target < kTargetCount && _indexes[target].recordCount() == _records[target].size();
    return current ? &_indexes[target] : nullptr;
}

std::size_t CheckSumList::count() const {
    return std::accumulate(_records.begin(), _records.end(), std::size_t{0},
                           [](std::size_t sum, const auto& records) { return sum + records.size(); });
}

std::size_t CheckSumList::memoryBytes() const {
    std::size_t bytes = _names.memoryBytes();
    for (const auto& records : _records) bytes += records.memoryBytes();
    for (const ChkIndex& index : _indexes) bytes += index.memoryBytes();
    return bytes;
}

void CheckSumList::reset() {
    _records = {};
    _indexes = {};
    _names.clear();
}

void CheckSumList::save(TableSink& sink) const {
    for (const auto& records : _records) sink.table(records.elements());
    for (const ChkIndex& index : _indexes) index.save(sink);
    _names.save(sink);
}

void CheckSumList::map(TableSource& source) {
    for (auto& records : _records) {
        records = Table(source.table<CheckSumRecord>());
        TableSource::require(records.size() <= UINT32_MAX);
    }
    for (std::size_t target = 0; target < kTargetCount; ++target) {
        _indexes[target].map(source, _records[target].size());
    }
    _names.map(source);
}
