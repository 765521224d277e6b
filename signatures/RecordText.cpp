// A line is taken apart once, then its fields are converted in their order, because the first thing that is wrong names
// the fault. Texts differ from field to field and are kept as they are.
#include "RecordText.h"

#include <concepts>

#include "ByteOrder.h"
#include "Decimal.h"
#include "PatternParser.h"
#include "Text.h"

namespace text = ZOV_SPACE::text;

namespace {

constexpr std::size_t kDigestDigits = 2 * Md5::kDigestSize;
constexpr std::size_t kNameField = 2;  // Of an MD5 record.

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

}  // namespace

std::optional<RecordFault> splitMd5Record(std::string_view line, Md5Text& out) {
    const RecordFault malformed{"Malformed md5 pattern [%s]", line};
    if (line.size() <= kDigestDigits || line[kDigestDigits] != ':') return malformed;
    out.digits = line.substr(0, kDigestDigits);
    out.name = text::field(line, kNameField, kFieldSeparator);
    if (out.name.empty()) return malformed;
    out.size = static_cast<std::uint32_t>(decimalPrefix(line.substr(kDigestDigits + 1)));
    return std::nullopt;
}

std::optional<RecordFault> decodeMd5Digits(std::string_view digits, unsigned char (&digest)[Md5::kDigestSize]) {
    return PatternParser::tryHex2str(digits, digest, kDigestDigits);
}

std::optional<RecordFault> parseCheckSumRecord(std::string_view line, CheckSumFields& out, std::string_view& name) {
    const auto fields = text::splitFields<kFieldCount>(line, kFieldSeparator);
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const auto field = static_cast<Field>(i);
        if (fields[i].empty()) return RecordFault{kFieldTexts[field].missing, line.substr(line.size())};
        if (Fault fault = convert(field, fields[i], out)) {
            fault->part = fields[i];
            return fault;
        }
    }
    name = fields[kVirusName];
    Fault fault = faultOf(out);
    if (fault) fault->part = fields[out.target >= kTargetCount ? kTarget : kOffsetType1];
    return fault;
}

std::optional<RecordFault> faultOf(const CheckSumFields& pattern) {
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
