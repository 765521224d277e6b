// Both sets are reduced to keys and sorted; the few records that differ are then read again, for their texts.
#include "SetDiff.h"

#include <algorithm>
#include <map>
#include <optional>
#include <span>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "RecordKey.h"

namespace {

using Records = std::vector<KeyedRecord>;
using Group = std::span<const KeyedRecord>;

bool isBefore(const KeyedRecord& a, const KeyedRecord& b) {
    return std::tie(a.key, a.nameHash, a.number) < std::tie(b.key, b.nameHash, b.number);
}

// Sorted, and of records with one key and name only the first.
Records sortedRecords(const std::vector<std::string>& files) {
    Records records = keyedRecords(files);
    std::sort(records.begin(), records.end(), isBefore);
    const auto same = [](const KeyedRecord& a, const KeyedRecord& b) {
        return a.key == b.key && a.nameHash == b.nameHash;
    };
    records.erase(std::unique(records.begin(), records.end(), same), records.end());
    return records;
}

// The records with one key from `begin` on.
Group groupAt(const Records& records, std::size_t begin) {
    std::size_t end = begin;
    while (end < records.size() && records[end].key == records[begin].key) ++end;
    return Group(records).subspan(begin, end - begin);
}

// What is in `all` under names that `others` does not have, in the order of the set.
std::vector<std::uint32_t> without(Group all, Group others) {
    std::vector<std::uint32_t> numbers;
    for (const KeyedRecord& record : all) {
        const auto found =
            std::lower_bound(others.begin(), others.end(), record.nameHash,
                             [](const KeyedRecord& other, std::uint64_t hash) { return other.nameHash < hash; });
        if (found == others.end() || found->nameHash != record.nameHash) numbers.push_back(record.number);
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

class Differences {
public:
    Differences(const Records& before, const Records& after) {
        std::size_t old = 0, young = 0;
        while (old < before.size() || young < after.size()) {
            const bool hasOld = old < before.size() && (young == after.size() || before[old].key <= after[young].key);
            const bool hasYoung = young < after.size() && (old == before.size() || after[young].key <= before[old].key);
            const Group ofOld = hasOld ? groupAt(before, old) : Group(),
                        ofYoung = hasYoung ? groupAt(after, young) : Group();
            compare(ofOld, ofYoung);
            old += ofOld.size();
            young += ofYoung.size();
        }
        std::sort(_removed.begin(), _removed.end());
        std::sort(_added.begin(), _added.end());
    }

    DiffTally tell(const std::vector<std::string>& before, const std::vector<std::string>& after,
                   const TakeChange& take) {
        std::unordered_map<std::uint32_t, std::string> oldNames;
        eachRecord(before, [&](const Record& record, std::uint64_t number) {
            if (std::binary_search(_removed.begin(), _removed.end(), number)) {
                take({SetChange::Kind::removed, record.text, {}});
            }
            const auto renamed = _renamedFrom.find(static_cast<std::uint32_t>(number));
            if (renamed != _renamedFrom.end()) oldNames[renamed->second] = record.name;
        });
        eachRecord(after, [&](const Record& record, std::uint64_t number) {
            const auto renamed = oldNames.find(static_cast<std::uint32_t>(number));
            if (renamed != oldNames.end()) {
                take({SetChange::Kind::renamed, record.text, renamed->second});
            } else if (std::binary_search(_added.begin(), _added.end(), number)) {
                take({SetChange::Kind::added, record.text, {}});
            }
        });
        return {_removed.size(), _renamedFrom.size(), _added.size()};
    }

private:
    void compare(Group before, Group after) {
        const std::vector<std::uint32_t> gone = without(before, after), come = without(after, before);
        const std::size_t renamed = std::min(gone.size(), come.size());
        for (std::size_t i = 0; i < renamed; ++i) _renamedFrom[gone[i]] = come[i];
        _removed.insert(_removed.end(), gone.begin() + static_cast<std::ptrdiff_t>(renamed), gone.end());
        _added.insert(_added.end(), come.begin() + static_cast<std::ptrdiff_t>(renamed), come.end());
    }

    std::vector<std::uint32_t> _removed, _added;
    std::unordered_map<std::uint32_t, std::uint32_t> _renamedFrom;  // New numbers by old ones.
};

}  // namespace

DiffTally diffSets(const std::string& oldPath, const std::string& newPath, const TakeChange& take) {
    const auto before = patternFilesAt({oldPath}), after = patternFilesAt({newPath});
    Differences differences(sortedRecords(before), sortedRecords(after));
    return differences.tell(before, after, take);
}
