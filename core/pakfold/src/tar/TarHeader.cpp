// POSIX.1-1988 (ustar) and what came before and after: GNU's binary numbers, the octal ones of old systems, with blanks
// in front or behind, and check-sums over bytes with a sign.
#include "tar/TarHeader.h"

#include <algorithm>
#include <limits>
#include <string_view>

namespace ZOV_SPACE {
namespace {

using namespace std::string_view_literals;

struct Field {
    std::size_t start, bytes;

    std::span<const char> of(std::span<const char> record) const { return record.subspan(start, bytes); }
    // The text up to a byte 0.
    std::string_view textOf(std::span<const char> record) const {
        const std::string_view text(record.data() + start, bytes);
        return text.substr(0, text.find('\0'));
    }
};
constexpr Field kName{0, 100}, kSize{124, 12}, kSum{148, 8}, kType{156, 1}, kMark{257, 8}, kPrefix{345, 155};

constexpr std::string_view kUstar = "ustar\0"sv, kGnu = "ustar  \0"sv;

bool begins(std::span<const char> record, std::string_view mark) {
    return std::string_view(record.data() + kMark.start, mark.size()) == mark;
}

bool isSumRight(std::span<const char> record) {
    // What is less is no number of that kind, but some byte that looks so; more is no sum of so few bytes.
    constexpr std::int64_t kSmallest = 0400, kLargest = std::int64_t{TarHeader::kRecord} * 255;
    const std::int64_t announced = TarHeader::number(kSum.of(record));
    if (announced < kSmallest || announced > kLargest) return false;
    std::int64_t sum = std::int64_t{' '} * static_cast<std::int64_t>(kSum.bytes), signedSum = sum;
    for (std::size_t i = 0; i < record.size(); ++i) {
        if (i >= kSum.start && i < kSum.start + kSum.bytes) continue;
        sum += static_cast<unsigned char>(record[i]);
        signedSum += static_cast<signed char>(record[i]);
    }
    return announced == sum || announced == signedSum;
}

std::int64_t binary(std::span<const char> field) {
    constexpr unsigned kSignBit = 0x40;
    const auto first = static_cast<unsigned char>(field[0]);
    if (first & kSignBit) return -1;
    std::int64_t value = first & 0x3F;
    for (const char byte : field.subspan(1)) {
        if (value > std::numeric_limits<std::int64_t>::max() >> 8) return std::numeric_limits<std::int64_t>::max();
        value = value << 8 | static_cast<unsigned char>(byte);
    }
    return value;
}

}  // namespace

std::int64_t TarHeader::number(std::span<const char> field) {
    if (static_cast<unsigned char>(field[0]) & 0x80) return binary(field);
    const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
    std::int64_t value = 0;
    for (auto at = std::find_if_not(field.begin(), field.end(), isBlank); at != field.end(); ++at) {
        if (*at < '0' || *at > '7') break;
        value = value * 8 + (*at - '0');
    }
    return value;
}

std::optional<TarHeader> TarHeader::read(std::span<const char> record) {
    if (!isSumRight(record)) return std::nullopt;
    TarHeader header;
    header.size = number(kSize.of(record));
    if (header.size < 0) return std::nullopt;
    header.type = record[kType.start];
    header.name = kName.textOf(record);
    const std::string_view prefix = kPrefix.textOf(record);
    const bool hasPrefix = begins(record, kUstar) && !begins(record, kGnu) && !prefix.empty();
    if (hasPrefix) header.name = std::string(prefix) + "/" + header.name;
    return header;
}

bool TarHeader::isMarked(std::span<const char> record) { return begins(record, kUstar) || begins(record, kGnu); }

bool TarHeader::isZero(std::span<const char> record) {
    return std::all_of(record.begin(), record.end(), [](char byte) { return byte == 0; });
}

bool TarHeader::isWithoutData() const {
    const bool isFile = type == '0' || type == '\0';
    return (type >= '1' && type <= '6') || (isFile && name.ends_with('/'));
}

}  // namespace ZOV_SPACE
