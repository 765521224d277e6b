#include "RecordKey.h"

#include <cstring>
#include <functional>
#include <limits>

#include "ByteOrder.h"
#include "VoleLibrary.h"

namespace {

// In the word that check-sum records have their kind in; no check-sum record has it.
constexpr std::uint32_t kIsMd5 = 0xFFFFFFFF;

std::uint32_t joined(std::uint32_t high, std::uint32_t low) { return high << 16 | low; }

}  // namespace

RecordKey keyOf(const Record& record) {
    if (record.kind == RecordKind::md5) {
        RecordKey key{};
        for (std::size_t i = 0; i < 4; ++i) key.words[i] = ZOV_SPACE::loadU32(record.digest + 4 * i);
        key.words[4] = record.size;
        key.words[5] = kIsMd5;
        return key;
    }
    const CheckSumFields& fields = record.checkSum;
    const auto offsets = joined(static_cast<std::uint16_t>(fields.offset1), static_cast<std::uint16_t>(fields.offset2));
    const auto lengths = joined(fields.length1, fields.length2);
    const auto place = joined(fields.target, joined(0, fields.offsetType) << 8 | fields.offsetParameter);
    return {{fields.checkString, fields.checkSum1, fields.checkSum2, offsets, lengths, place}};
}

std::vector<KeyedRecord> keyedRecords(const std::vector<std::string>& files) {
    std::vector<KeyedRecord> records;
    eachRecord(files, [&](const Record& record, std::uint64_t number) {
        if (number == std::numeric_limits<std::uint32_t>::max()) throw LoadError("too many records");
        records.push_back(
            {keyOf(record), std::hash<std::string_view>()(record.name), static_cast<std::uint32_t>(number)});
    });
    return records;
}
