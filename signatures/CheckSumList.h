// CheckSumList: the checksum ("chk-sum") signatures of one pattern container, by target.
//
// A record matches a file by a 4-byte check string and two CRC-32 values over short ranges, at positions that its
// offset type places. Records of one target are tried newest first. To spare a scan the walk over all of them, index()
// arranges them as ChkIndex.h tells.
//
// Filled by one thread, or mapped, then shared read-only by any number.
#ifndef SIGNATURES_CHECKSUMLIST_H
#define SIGNATURES_CHECKSUMLIST_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "CheckSumPattern.h"
#include "ChkIndex.h"
#include "NameArena.h"
#include "RecordFault.h"
#include "Table.h"
#include "TableFile.h"

class CheckSumList {
public:
    CheckSumList() = default;
    CheckSumList(const CheckSumList&) = delete;
    CheckSumList& operator=(const CheckSumList&) = delete;

    // Parses one record line (ten fields separated by ':') and enters it. Throws Exception on any fault.
    void addString(const char* line);

    // Validates and enters one record; the list copies its name. Throws Exception on any fault.
    void addPattern(const CheckSumPattern& pattern);

    // addString() for the loading of whole files: returns what is wrong with the line instead of throwing it. Throws
    // OutOfMemoryException.
    std::optional<RecordFault> append(std::string_view line);

    // Brings the indexes up to date. A scan over a list with newer records is right all the same, only slow.
    void index();

    // The records of a target, oldest first; empty for a target of kTargetCount and above.
    std::span<const CheckSumRecord> records(TARGET_TYPE target) const;
    // Owned by the list, which the record is of.
    const char* nameOf(const CheckSumRecord& record) const { return _names.at(record.name); }
    // The same records arranged for searching; null when index() has not run since the latest was added.
    const ChkIndex* indexOf(TARGET_TYPE target) const;

    std::size_t count() const;
    // Bytes of memory behind the list, room for more records included.
    std::size_t memoryBytes() const;
    void reset();

    // As in BmList.
    void save(TableSink& sink) const;
    void map(TableSource& source);

private:
    void enter(const CheckSumFields& pattern, std::string_view name);

    std::array<Table<CheckSumRecord>, kTargetCount> _records;
    std::array<ChkIndex, kTargetCount> _indexes;
    NameArena _names;
};

#endif  // SIGNATURES_CHECKSUMLIST_H
