// RecordKey.h: what a record matches, whatever its name is, for telling records apart without keeping their texts.
#ifndef VOLE_WORKSHOP_RECORD_KEY_H
#define VOLE_WORKSHOP_RECORD_KEY_H

#include <array>
#include <compare>
#include <cstdint>
#include <string_view>
#include <vector>

#include "RecordFiles.h"

// What is the same for two records that match the same contents. Of an MD5 record the size belongs to it, since it says
// which contents are hashed at all.
struct RecordKey {
    std::array<std::uint32_t, 6> words;

    auto operator<=>(const RecordKey&) const = default;
};

RecordKey keyOf(const Record& record);

// One record of a set, by its number in the order of the load.
struct KeyedRecord {
    RecordKey key;
    std::uint64_t nameHash;
    std::uint32_t number;
};

// Of all files, in the order of the load. Throws LoadError, and for more than 2^32 - 1 records.
std::vector<KeyedRecord> keyedRecords(const std::vector<std::string>& files);

// Reads the files and hands on each record with its number. Throws LoadError.
template <class Take>
void eachRecord(const std::vector<std::string>& files, Take take);

template <class Take>
void eachRecord(const std::vector<std::string>& files, Take take) {
    struct Numbering : RecordVisitor {
        explicit Numbering(Take& visit) : visitor(visit) {}
        void onRecord(const Record& record) override { visitor(record, number++); }
        Take& visitor;
        std::uint64_t number = 0;
    };
    Numbering numbering(take);
    for (const std::string& file : files) readRecords(file, numbering);
}

#endif  // VOLE_WORKSHOP_RECORD_KEY_H
