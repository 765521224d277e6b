#include "CheckSumList.h"

#include <new>
#include <numeric>

#include "ByteOrder.h"
#include "PatternParser.h"
#include "Raise.h"
#include "Utils.h"
#include "VoleUtil.h"

using ZOV_SPACE::Exception;
using ZOV_SPACE::Utils;

namespace {

using Fault = std::optional<std::string>;

constexpr const char* kFieldSeparator = ":";
constexpr unsigned kWordDigits = 8;
constexpr unsigned kOffsetTypeDigits = 4;

// The texts for a field that is missing, and for one that is no number; hosts know them with all their differences.
struct FieldTexts {
    const char* missing;
    const char* invalid;  // printf format for the field's text; null where the converter has texts of its own.
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

Fault invalid(Field field, const std::string& text) {
    std::string message = kFieldTexts[field].invalid;
    return message.replace(message.find("%s"), 2, text);
}

Fault getByte(Field field, const std::string& text, std::uint8_t& out) {
    return VoleUtil::hex2uchar(text.c_str(), &out) ? Fault() : invalid(field, text);
}

Fault getShort(Field field, const std::string& text, std::int16_t& out) {
    std::uint16_t value;
    if (!VoleUtil::hex2ushort(text.c_str(), &value)) return invalid(field, text);
    out = static_cast<std::int16_t>(value);
    return {};
}

Fault getWord(std::string_view text, std::uint32_t& out) {
    unsigned char bytes[kWordDigits / 2];
    Fault fault = PatternParser::tryHex2str(text, bytes, kWordDigits);
    if (!fault) out = ZOV_SPACE::loadU32(bytes);
    return fault;
}

Fault getOffsetType(std::string_view text, CheckSumPattern& pattern) {
    unsigned char bytes[kOffsetTypeDigits / 2];
    Fault fault = PatternParser::tryHex2str(text, bytes, kOffsetTypeDigits);
    if (!fault) {
        pattern.offsetType = bytes[0];
        pattern.offsetParameter = bytes[1];
    }
    return fault;
}

Fault convert(Field field, std::string_view text, CheckSumPattern& pattern) {
    switch (field) {
        case kTarget:
            return getByte(field, std::string(text), pattern.target);
        case kOffsetType1:
            return getOffsetType(text, pattern);
        case kOffset1:
            return getShort(field, std::string(text), pattern.offset1);
        case kLength1:
            return getByte(field, std::string(text), pattern.length1);
        case kCheckString:
            return getWord(text, pattern.checkString);
        case kCheckSum1:
            return getWord(text, pattern.checkSum1);
        case kOffset2:
            return getShort(field, std::string(text), pattern.offset2);
        case kLength2:
            return getByte(field, std::string(text), pattern.length2);
        case kCheckSum2:
            return getWord(text, pattern.checkSum2);
        case kVirusName:
        case kFieldCount:
            break;
    }
    return {};
}

Fault validate(const CheckSumPattern& pattern) {
    if (pattern.target >= kTargetCount) {
        return Utils::formatString("Malformed chk-sum :target[%d] is greater than %d", pattern.target,
                                   static_cast<int>(kTargetCount));
    }
    if (pattern.offsetType >= kOffsetTypeCount) {
        return Utils::formatString("Malformed chk-sum :offsetType1[0]=[%d] is known", pattern.offsetType);
    }
    if (pattern.offsetType >= kFromEntryPoint && pattern.target != kTargetPe) {
        return "Malformed chk-sum string :offsetType1 > 1, but targ != pe ";
    }
    return {};
}

}  // namespace

std::optional<std::string> CheckSumList::append(std::string_view line) {
    CheckSumPattern pattern;
    std::string_view name;
    for (int index = 0; index < kFieldCount; ++index) {
        const auto field = static_cast<Field>(index);
        const auto text = Utils::field(line, index, kFieldSeparator);
        if (!text) return kFieldTexts[field].missing;
        if (field == kVirusName) name = *text;
        if (Fault fault = convert(field, *text, pattern)) return fault;
    }
    return enter(pattern, name);
}

std::optional<std::string> CheckSumList::enter(const CheckSumPattern& pattern, std::string_view name) {
    if (Fault fault = validate(pattern)) return fault;
    CheckSumPattern record = pattern;
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
    if (const Fault fault = append(line)) ZOV_SPACE::raise<Exception>(*fault);
}

void CheckSumList::addPattern(const CheckSumPattern& pattern) {
    if (const Fault fault = enter(pattern, pattern.name)) ZOV_SPACE::raise<Exception>(*fault);
}

void CheckSumList::index() {
    try {
        for (std::size_t target = 0; target < kTargetCount; ++target) {
            if (!indexOf(static_cast<TARGET_TYPE>(target))) _indexes[target] = ChkIndex(_records[target]);
        }
    } catch (const std::bad_alloc&) {
        ZOV_SPACE::raise<Exception>(" allocate check-sum pattern head fail ");
    }
}

std::span<const CheckSumPattern> CheckSumList::records(TARGET_TYPE target) const {
    if (target >= kTargetCount) return {};
    return _records[target];
}

const ChkIndex* CheckSumList::indexOf(TARGET_TYPE target) const {
    const bool current = target < kTargetCount && _indexes[target].recordCount() == _records[target].size();
    return current ? &_indexes[target] : nullptr;
}

std::size_t CheckSumList::count() const {
    return std::accumulate(_records.begin(), _records.end(), std::size_t{0},
                           [](std::size_t sum, const auto& records) { return sum + records.size(); });
}

void CheckSumList::reset() {
    _records = {};
    _indexes = {};
    _names.clear();
}
