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
RarMeaning meaningAt(const Decode& decode, std::uint32_t index) {
    return decode.meanings[index < decode.size ? index : 0];
}

void makeLimits(const unsigned char* lengths, Decode& decode) {
    std::array<std::uint32_t, Decode::kLongestCode + 1> count{};
    for (std::uint32_t i = 0; i < decode.size; ++i) ++count[lengths[i]];
    std::uint32_t limit = 0, position = 0;
    decode.limit[0] = decode.position[0] = 0;
    for (unsigned length = 1; length <= Decode::kLongestCode; ++length) {
        limit = std::min(limit + (count[length] << (16 - length)), kFull);
        decode.limit[length] = limit;
        decode.position[length] = position;
        position += count[length];
    }
}

void sortMeanings(const unsigned char* lengths, const RarMeaning* meanings, Decode& decode) {
    auto next = decode.position;
    decode.meanings.fill(meanings[0]);
    for (std::uint32_t i = 0; i < decode.size; ++i) {
        if (lengths[i] != 0) decode.meanings[next[lengths[i]]++] = meanings[i];
    }
}

void makeQuickTable(Decode& decode) {
    auto* entry = decode.quick.begin();
    for (unsigned length = 1; length <= Decode::kQuickBits; ++length) {
        const std::uint32_t codes = (decode.limit[length] - decode.limit[length - 1]) >> (16 - length);
        const std::uint32_t run = 1U << (Decode::kQuickBits - length);
        for (std::uint32_t i = 0; i < codes; ++i) {
            entry = std::fill_n(entry, run, meaningAt(decode, decode.position[length] + i).withLength(length));
        }
    }
    std::fill(entry, decode.quick.end(), RarMeaning());
}

}  // namespace

void makeDecodeTables(const unsigned char* lengths, const RarMeaning* meanings, std::size_t size, Decode& decode) {
    decode.size = static_cast<std::uint32_t>(size);
    makeLimits(lengths, decode);
    sortMeanings(lengths, meanings, decode);
    makeQuickTable(decode);
}

RarMeaning decodeLongCode(const Decode& decode, std::uint32_t bits) {
    const std::uint32_t code = bits & 0xFFFE;
    unsigned length = 1;
    while (length < Decode::kLongestCode && code >= decode.limit[length]) ++length;
    const std::uint32_t index = decode.position[length] + ((code - decode.limit[length - 1]) >> (16 - length));
    return meaningAt(decode, index).withLength(length);
}

}  // namespace ZOV_SPACE
