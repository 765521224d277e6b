// RangeSource.h: what a check-sum record of a content can be made of.
#ifndef VOLE_WORKSHOP_RANGE_SOURCE_H
#define VOLE_WORKSHOP_RANGE_SOURCE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CheckSumPattern.h"
#include "vole.h"

// What offsets are to count from.
struct Anchor {
    ChkOffsetType type = kFromStart;
    std::uint8_t section = 0;
};

// "start", "end", "entry", "section:0" to "section:255".
std::optional<Anchor> parseAnchor(const std::string& text);

// A record has two of them.
struct Range {
    std::int16_t offset;
    std::uint8_t length;
    std::uint32_t checkString;
    std::uint32_t checkSum;
};

struct RangeSource {
    CheckSumFields common = {};  // Target and offset type.
    std::vector<Range> ranges;   // At most kMostRanges, best first.

    static constexpr std::size_t kMostRanges = 24;
    // Bytes from a record's anchor that its offsets, 16 bits with a sign, reach.
    static constexpr std::int64_t kReach = INT16_MAX;

    CheckSumFields recordOf(const Range& first, const Range& second) const;
};

// Looks behind the headers, if there is enough, and for entry points and sections in the section that they are in.
// Lengths are those asked for, or less in what is small. Throws LoadError, with a text, where a content has nothing of
// the kind, or cannot be read.
RangeSource rangesOf(const vole_content& content, const Anchor& anchor, std::uint8_t length);

#endif  // VOLE_WORKSHOP_RANGE_SOURCE_H
