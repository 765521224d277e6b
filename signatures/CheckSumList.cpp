// A line is taken apart once, then its fields are converted in their order, because the first thing that is wrong names
// the fault. Texts differ from field to field and are kept as they are.
#include "CheckSumList.h"

#include <new>
#include <numeric>

#include "ByteOrder.h"
#include "PatternParser.h"
#include "Raise.h"
#include "Text.h"

using ZOV_SPACE::Exception;

namespace text = ZOV_SPACE::text;

namespace {

using Fault = std::optional<RecordFault>;

constexpr const char* kFieldSeparator = ":";
constexpr unsigned kWordDigits = 8;
constexpr unsigned kOffsetTypeDigits = 4;

// The texts for a field that is missing, and for one that is no number. Kept as is: their differences follow no rule,
// and whoever compares texts, as tests of pattern files do, knows them so.
struct FieldTexts {
    const char* missing;
    const char* invalid;  // "%s" stands for the field; null where the converter has texts of its own.
};

enum Field {
    kTarget,
    kOffsetType1,
    kOffset1,
    kLength1,
    kCheckString,
    kCheckSum1,
    kOffset2,
    kLength2,
    kCheckSum2,
    kVirusName,
    kFieldCount
};

constexpr FieldTexts kFieldTexts[kFieldCount] = {
    {"Malformed chk-sum string :fail to get target", "Malformed chk-sum string :fail to get target, [%s]"},
    {"Malformed chk-sum string :fail to get offset type1", nullptr},
    {"Malformed chk-sum string :fail to get offset1", "Malformed chk-sum string :fail to get offset1, [%s]"},
    {"Malformed chk-sum string :fail to get length1", "Malformed chk-sum :fail to get length1, [%s]"},
    {"Malformed chk-sum :fail to get check_string", nullptr},
    {"Malformed chk-sum :fail to get check-sum1", nullptr},
    {"Malformed chk-sum :fail to get offset2", "Malformed chk-sum :fail to get offset2, [%s]"},
    {"Malformed chk-sum :fail to get length2", "Malformed chk-sum :fail to get length2[%s]"},
    {"Malformed chk-sum :fail to get check-sum2", nullptr},
    {"Malformed chk-sum fail to get virus name", nullptr},
};

// Reads a field of 1 to 2 * sizeof(Number) digits.
template <std::unsigned_integral Number, class Out>
Fault getNumber(Field field, std::string_view digits, Out& out) {
    const auto number = digits.size() <= 2 * sizeof(Number) ? text::hexNumber<Number>(digits) : std::nullopt;
    if (!number) return RecordFault{kFieldTexts[field].invalid, digits};
    out = static_cast<Out>(*number);
    return {};
}

Fault getWord(std::string_view digits, std::uint32_t& out) {
    unsigned char bytes[kWordDigits / 2];
    Fault fault = PatternParser::tryHex2str(digits, bytes, kWordDigits);
    if (!fault) out = ZOV_SPACE::loadU32(bytes);
    return fault;
}

Fault getOffsetType(std::string_view digits, CheckSumFields& pattern) {
    unsigned char bytes[kOffsetTypeDigits / 2];
    Fault fault = PatternParser::tryHex2str(digits, bytes, kOffsetTypeDigits);
    if (!fault) {
        pattern.offsetType = bytes[0];
        pattern.offsetParameter = bytes[1];
    }
    return fault;
}

Fault convert(Field field, std::string_view digits, CheckSumFields& pattern) {
    switch (field) {
        case kTarget:
            return getNumber<std::uint8_t>(field, digits, pattern.target);
        case kOffsetType1:
            return getOffsetType(digits, pattern);
        case kOffset1:
            return getNumber<std::uint16_t>(field, digits, pattern.offset1);
        case kLength1:
            return getNumber<std::uint8_t>(field, digits, pattern.length1);
        case kCheckString:
            return getWord(digits, pattern.checkString);
        case kCheckSum1:
            return getWord(digits, pattern.checkSum1);
        case kOffset2:
            return getNumber<std::uint16_t>(field, digits, pattern.offset2);
        case kLength2:
            return getNumber<std::uint8_t>(field, digits, pattern.length2);
        case kCheckSum2:
            return getWord(digits, pattern.checkSum2);
        case kVirusName:
        case kFieldCount:
            break;
    }
    return {};
}

Fault validate(const CheckSumFields& pattern) {
    static_assert(kTargetCount == 9);
    if (pattern.target >= kTargetCount) {
        return RecordFault{"Malformed chk-sum :target[%d] is greater than 9", {}, pattern.target};
    }
    if (pattern.offsetType >= kOffsetTypeCount) {
        return RecordFault{"Malformed chk-sum :offsetType1[0]=[%d] is known", {}, pattern.offsetType};
    }
    if (pattern.offsetType >= kFromEntryPoint && pattern.target != kTargetPe) {
        return RecordFault{"Malformed chk-sum string :offsetType1 > 1, but targ != pe "};
    }
    return {};
}

}  // namespace

std::optional<RecordFault> CheckSumList::append(std::string_view line) {
    CheckSumFields pattern;
    const auto fields = text::splitFields<kFieldCount>(line, kFieldSeparator);
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const auto field = static_cast<Field>(i);
        if (fields[i].empty()) return RecordFault{kFieldTexts[field].missing};
        if (Fault fault = convert(field, fields[i], pattern)) return fault;
    }
    return enter(pattern, fields[kVirusName]);
}

std::optional<RecordFault> CheckSumList::enter(const CheckSumFields& pattern, std::string_view name) {
    if (Fault fault = validate(pattern)) return fault;
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
    return {};
}

void CheckSumList::addString(const char* line) {
    if (const Fault fault = append(line)) ZOV_SPACE::raise<Exception>(fault->message());
}

void CheckSumList::addPattern(const CheckSumPattern& pattern) {
    if (const Fault fault = enter(pattern, pattern.name)) ZOV_SPACE::raise<Exception>(fault->message());
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
