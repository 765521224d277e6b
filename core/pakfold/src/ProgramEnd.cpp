#include "ProgramEnd.h"

#include <algorithm>
#include <limits>
#include <span>

#include "ByteOrder.h"

namespace ZOV_SPACE {
namespace {

constexpr std::uint32_t kLargest = std::numeric_limits<std::uint32_t>::max();

// Numbers in a content, 0 where it has ended.
template <class Number>
std::int64_t numberAt(ContentBytes& bytes, std::int64_t position) {
    const std::span<const char> there = bytes.at(position, sizeof(Number));
    const Number number = there.size() < sizeof(Number) ? Number{} : loadLittleEndian<Number>(there.data());
    return static_cast<std::int64_t>(std::min<std::uint64_t>(number, kLargest));
}

// Where the last section of a program for Windows ends.
std::int64_t endOfPe(ContentBytes& bytes) {
    constexpr std::int64_t kMostSections = 96, kSectionBytes = 40;
    const std::int64_t header = numberAt<std::uint32_t>(bytes, 60);
    constexpr std::uint32_t kPe = 0x00004550;
    if (bytes.signatureAt(header) != kPe) return 0;
    const std::int64_t count = std::min(numberAt<std::uint16_t>(bytes, header + 6), kMostSections);
    const std::int64_t sections = header + 24 + numberAt<std::uint16_t>(bytes, header + 20);
    std::int64_t end = 0;
    for (std::int64_t at = sections; at < sections + count * kSectionBytes; at += kSectionBytes) {
        end = std::max(end, numberAt<std::uint32_t>(bytes, at + 16) + numberAt<std::uint32_t>(bytes, at + 20));
    }
    return end;
}

// Where the table of sections ends, the last thing in a program for Linux.
std::int64_t endOfElf(ContentBytes& bytes) {
    constexpr std::int64_t kWide = 2;
    const bool isWide = numberAt<std::uint8_t>(bytes, 4) == kWide;
    const std::int64_t table = isWide ? numberAt<std::uint64_t>(bytes, 40) : numberAt<std::uint32_t>(bytes, 32);
    const std::int64_t sizes = isWide ? 58 : 46;
    return table + numberAt<std::uint16_t>(bytes, sizes) * numberAt<std::uint16_t>(bytes, sizes + 2);
}

}  // namespace

std::optional<std::int64_t> endOfProgram(ContentBytes& content) {
    constexpr std::uint32_t kElf = 0x464C457F;
    constexpr std::uint16_t kMz = 0x5A4D;
    const std::uint32_t first = content.signatureAt(0);
    if (static_cast<std::uint16_t>(first) == kMz) return endOfPe(content);
    return first == kElf ? std::optional(endOfElf(content)) : std::nullopt;
}

}  // namespace ZOV_SPACE
