// Canonical codes: those of the same length are consecutive numbers in the order of the symbols, and each length begins
// where the shorter ones end. Left-aligned in 16 bits, a code's length is therefore found by comparing it with where
// each length ends, and its symbol by its distance from the first of its length. For the first bits a table has the
// answer ready.
#include "rar/lz/RarHuffman.h"

#include <algorithm>

namespace ZOV_SPACE {
namespace {

constexpr std::uint32_t kFull = 0x10000;  // Behind the last 16-bit pattern.

// What the symbol with the index means; beyond the alphabet, the first.
RarMeaning meaningAt(const RarCodeRanges& ranges, std::uint32_t index) {
    return ranges.meanings[index < ranges.size ? index : 0];
}

void makeLimits(const unsigned char* lengths, RarCodeRanges& ranges) {
    std::array<std::uint32_t, RarCodeRanges::kLongestCode + 1> count{};
    for (std::uint32_t i = 0; i < ranges.size; ++i) ++count[lengths[i]];
    std::uint32_t limit = 0, position = 0;
    ranges.limit[0] = ranges.position[0] = 0;
    for (unsigned length = 1; length <= RarCodeRanges::kLongestCode; ++length) {
        limit = std::min(limit + (count[length] << (16 - length)), kFull);
        ranges.limit[length] = limit;
        ranges.position[length] = position;
        position += count[length];
    }
}

void sortMeanings(const unsigned char* lengths, std::span<const RarMeaning> meanings, RarCodeRanges& ranges) {
    auto next = ranges.position;
    std::fill_n(ranges.meanings.begin(), meanings.size(), meanings[0]);
    for (std::size_t i = 0; i < meanings.size(); ++i) {
        if (lengths[i] != 0) ranges.meanings[next[lengths[i]]++] = meanings[i];
    }
}

}  // namespace

void makeCodeRanges(const unsigned char* lengths, std::span<const RarMeaning> meanings, RarCodeRanges& ranges) {
    ranges.size = static_cast<std::uint32_t>(meanings.size());
    makeLimits(lengths, ranges);
    sortMeanings(lengths, meanings, ranges);
}

void makeQuickTable(const RarCodeRanges& ranges, unsigned bits, RarMeaning* table) {
    RarMeaning* const end = table + (std::size_t{1} << bits);
    for (unsigned length = 1; length <= bits; ++length) {
        const std::uint32_t codes = (ranges.limit[length] - ranges.limit[length - 1]) >> (16 - length);
        const std::uint32_t run = 1U << (bits - length);
        for (std::uint32_t i = 0; i < codes; ++i) {
            table = std::fill_n(table, run, meaningAt(ranges, ranges.position[length] + i).withLength(length));
        }
    }
    std::fill(table, end, RarMeaning());
}

RarMeaning decodeLongCode(const RarCodeRanges& ranges, std::uint32_t bits) {
    const std::uint32_t code = bits & 0xFFFE;
    unsigned length = 1;
    while (length < RarCodeRanges::kLongestCode && code >= ranges.limit[length]) ++length;
    const std::uint32_t index = ranges.position[length] + ((code - ranges.limit[length - 1]) >> (16 - length));
    return meaningAt(ranges, index).withLength(length);
}

}  // namespace ZOV_SPACE
