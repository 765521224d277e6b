#include "support/RarEncoder.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <queue>
#include <utility>

namespace ZOV_SPACE {
namespace {

using Counts = std::vector<std::uint32_t>;

constexpr unsigned kLongestCode = 15;
constexpr unsigned kEndOfBlock = 256, kFilter = 257;  // RAR 2.9.
constexpr unsigned kNewTables20 = 269;

const std::vector<unsigned> kLengthBits{0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2,
                                        2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5};
const std::vector<unsigned> kShortBits{2, 2, 3, 4, 5, 6, 6, 6};

std::vector<unsigned> distanceBits(int version) {
    std::vector<unsigned> bits(4);
    for (unsigned count = 1; count < 16; ++count) bits.insert(bits.end(), 2, count);
    bits.insert(bits.end(), 14, 16);
    if (version == 29) bits.insert(bits.end(), 12, 18);
    return bits;
}

std::uint32_t farBonus(std::uint32_t distance) {
    return (distance > 0x1FFF ? 1U : 0U) + (distance > 0x3FFFF ? 1U : 0U);
}

// Adds up the two rarest until one is left; who is added up gets a bit longer.
void makeLengths(Counts counts, unsigned char* lengths) {
    for (;; std::for_each(counts.begin(), counts.end(), [](auto& count) { count = (count + 1) / 2; })) {
        using Node = std::pair<std::uint32_t, std::vector<std::size_t>>;
        std::priority_queue<Node, std::vector<Node>, std::greater<>> queue;
        std::fill_n(lengths, counts.size(), static_cast<unsigned char>(0));
        for (std::size_t i = 0; i < counts.size(); ++i) {
            if (counts[i] > 0) queue.push({counts[i], {i}});
        }
        if (queue.size() == 1) {
            // With another symbol, because some decoders refuse a code that leaves a part of its bits unused.
            const std::size_t only = queue.top().second[0];
            lengths[only] = lengths[only == 0 ? 1 : 0] = 1;
        }
        while (queue.size() > 1) {
            Node a = queue.top();
            queue.pop();
            Node b = queue.top();
            queue.pop();
            a.first += b.first;
            a.second.insert(a.second.end(), b.second.begin(), b.second.end());
            for (const std::size_t i : a.second) ++lengths[i];
            queue.push(std::move(a));
        }
        if (*std::max_element(lengths, lengths + counts.size()) <= kLongestCode) return;
    }
}

void makeCodes(const unsigned char* lengths, std::size_t count, std::uint32_t* codes) {
    std::uint32_t next = 0;
    for (unsigned length = 1; length <= kLongestCode; ++length, next <<= 1) {
        for (std::size_t i = 0; i < count; ++i) {
            if (lengths[i] == length) codes[i] = next++;
        }
    }
}

}  // namespace

std::vector<unsigned char> filterOf(std::uint32_t number, std::uint32_t ahead, std::uint32_t length,
                                    const std::vector<unsigned char>& program) {
    RarBitWriter bits;
    for (const std::uint32_t each : {number, ahead, length}) bits.putNumber(each);
    if (!program.empty()) bits.putNumber(static_cast<std::uint32_t>(program.size()));
    for (const unsigned char byte : program) bits.put(byte, 8);
    return bits.bytes();
}

RarEncoder::RarEncoder(int version) : _version(version) {
    const std::array<std::size_t, kAlphabets> sizes = is20() ? std::array<std::size_t, kAlphabets>{298, 48, 0, 28}
                                                             : std::array<std::size_t, kAlphabets>{299, 60, 17, 28};
    _first[0] = 0;
    std::partial_sum(sizes.begin(), sizes.end(), _first.begin() + 1);
    _lengths.resize(_first.back());
    _codes.resize(_first.back());
}

void RarEncoder::literal(char byte) {
    symbol(kMain, static_cast<unsigned char>(byte));
    _unpacked += byte;
}

void RarEncoder::text(std::string_view bytes) {
    for (const char byte : bytes) literal(byte);
}

void RarEncoder::number(Alphabet alphabet, std::uint32_t first, std::uint32_t value,
                        const std::vector<unsigned>& bitsOf) {
    for (const unsigned count : bitsOf) {
        if (value >> count == 0) {
            symbol(alphabet, first);
            return bits(value, count);
        }
        value -= 1U << count;
        ++first;
    }
}

void RarEncoder::distance(std::uint32_t value) {
    number(kDistances, 0, value - 1, distanceBits(_version));
    if (is20() || value <= 32) return;
    Token& last = _tokens.back();
    const std::uint32_t low = last.value & 15;
    last.value >>= 4;
    last.bits -= 4;
    if (_lowRepeats > 0) {
        --_lowRepeats;
    } else if (std::exchange(_repeatLow, false)) {
        symbol(kLowDistances, 16);
        _lowRepeats = 15;
    } else {
        symbol(kLowDistances, _lastLow = low);
    }
}

void RarEncoder::copy(std::uint32_t distance, std::uint32_t length) {
    for (; length > 0; --length) {
        _unpacked += distance <= _unpacked.size() ? _unpacked[_unpacked.size() - distance] : '\0';
    }
}

void RarEncoder::remember(std::uint32_t distance, std::uint32_t length, std::size_t from) {
    if (is20()) from = _old.size() - 1;
    std::copy_backward(_old.begin(), _old.begin() + static_cast<std::ptrdiff_t>(from),
                       _old.begin() + static_cast<std::ptrdiff_t>(from) + 1);
    _old[0] = distance;
    _lastLength = length;
    copy(distance, length);
}

void RarEncoder::match(std::uint32_t dist, std::uint32_t length) {
    number(kMain, is20() ? 270 : 271, length - 3 - farBonus(dist), kLengthBits);
    distance(dist);
    remember(dist, length, 3);
}

void RarEncoder::shortMatch(std::uint32_t dist) {
    number(kMain, is20() ? 261 : 263, dist - 1, kShortBits);
    remember(dist, 2, 3);
}

void RarEncoder::repeatMatch() {
    symbol(kMain, is20() ? 256 : 258);
    remember(_old[0], _lastLength, 0);
}

void RarEncoder::oldDistance(std::uint32_t index, std::uint32_t length) {
    const std::uint32_t dist = _old[index];
    symbol(kMain, (is20() ? 257 : 259) + index);
    const std::uint32_t bonus = is20() && dist > 256 ? 1 + farBonus(dist) : 0;
    number(kRepeats, 0, length - 2 - bonus, kLengthBits);
    remember(dist, length, index);
}

void RarEncoder::filter(unsigned firstByte, const std::vector<unsigned char>& description) {
    const auto size = static_cast<std::uint32_t>(description.size());
    symbol(kMain, kFilter);
    bits(firstByte | (size <= 6 ? size - 1 : size < 263 ? 6 : 7), 8);
    if (size > 6) size < 263 ? bits(size - 7, 8) : bits(size, 16);
    for (const unsigned char byte : description) bits(byte, 8);
}

void RarEncoder::nextBlock(bool keepLengths) {
    symbol(kMain, is20() ? kNewTables20 : kEndOfBlock);
    if (!is20()) bits(1, 1);
    writeBlock(false);
    _tablesDue = true;
    _keepLengths = keepLengths;
    _lowRepeats = _lastLow = 0;
}

std::string RarEncoder::finish(bool tablesFollow) {
    if (!is20()) {
        symbol(kMain, kEndOfBlock);
        bits(tablesFollow, 2);
    } else if (tablesFollow) {
        nextBlock();
    }
    std::string packed = takePacked(is20() || !tablesFollow);
    _tablesDue = tablesFollow && !is20();
    if (_tablesDue) _lowRepeats = _lastLow = 0;
    return packed;
}

std::string RarEncoder::takePacked(bool codeAll) {
    writeBlock(codeAll);
    const std::vector<unsigned char> bytes = std::exchange(_out, {}).bytes();
    _bitCount = 0;
    return {bytes.begin(), bytes.end()};
}

std::string RarEncoder::takeEntry() { return _unpacked.substr(std::exchange(_entryStart, _unpacked.size())); }

void RarEncoder::put(std::uint32_t value, unsigned count) {
    _out.put(value, count);
    _bitCount += count;
}

// With `codeAll`, symbols that the block does not use have codes, too, for the entry that continues with them.
void RarEncoder::writeBlock(bool codeAll) {
    if (std::exchange(_tablesDue, false)) {
        Counts counts(_first.back(), codeAll ? 1 : 0);
        for (const Token& token : _tokens) {
            if (token.alphabet < kAlphabets)
                counts[_first[static_cast<std::size_t>(token.alphabet)] + token.value] += 64;
        }
        Lengths lengths(_first.back());
        for (std::size_t i = 0; i < kAlphabets; ++i) {
            const auto begin = counts.begin() + static_cast<std::ptrdiff_t>(_first[i]);
            const auto end = counts.begin() + static_cast<std::ptrdiff_t>(_first[i + 1]);
            makeLengths(Counts(begin, end), lengths.data() + _first[i]);
            makeCodes(lengths.data() + _first[i], _first[i + 1] - _first[i], _codes.data() + _first[i]);
        }
        writeTables(lengths);
    }
    for (const Token& token : std::exchange(_tokens, {})) {
        if (token.alphabet == kAlphabets) {
            put(token.value, token.bits);
        } else {
            const std::size_t index = _first[static_cast<std::size_t>(token.alphabet)] + token.value;
            put(_codes[index], _lengths[index]);
        }
    }
}

void RarEncoder::writeTables(const Lengths& lengths) {
    if (!is20()) put(0, static_cast<unsigned>((8 - _bitCount % 8) % 8));
    put(std::exchange(_keepLengths, false) ? 1 : (std::fill(_lengths.begin(), _lengths.end(), 0), 0), 2);
    // A code for code lengths that uses all of its bits: four for the first ones, five for the others.
    for (std::uint32_t i = 0; i < (is20() ? 19 : 20); ++i) put(i < shortLengths() ? 4 : 5, 4);
    writeLengths(lengths);
    _lengths = lengths;
}

void RarEncoder::putLength(std::uint32_t length) {
    const std::uint32_t few = shortLengths();
    length < few ? put(length, 4) : put(few + length, 5);
}

void RarEncoder::writeLengths(const Lengths& lengths) {
    const unsigned repeatBits = is20() ? 2 : 3;
    const std::uint32_t zeros = is20() ? 17 : 18;
    for (std::size_t i = 0; i < lengths.size();) {
        const auto end = std::find_if(lengths.begin() + static_cast<std::ptrdiff_t>(i), lengths.end(),
                                      [&](unsigned char each) { return each != lengths[i]; });
        auto run = static_cast<std::uint32_t>(end - lengths.begin()) - static_cast<std::uint32_t>(i);
        const bool repeats = i > 0 && lengths[i - 1] == lengths[i];
        if (lengths[i] == 0 && run >= 11) {
            putLength(zeros + 1), put((run = std::min(run, 138U)) - 11, 7);
        } else if (lengths[i] == 0 && run >= 3) {
            putLength(zeros), put(run - 3, 3);
        } else if (repeats && run >= 11 && !is20()) {
            putLength(17), put((run = std::min(run, 138U)) - 11, 7);
        } else if (repeats && run >= 3) {
            putLength(16), put((run = std::min(run, (1U << repeatBits) + 2)) - 3, repeatBits);
        } else {
            putLength((lengths[i] - _lengths[i]) & 15U);
            run = 1;
        }
        i += run;
    }
}

}  // namespace ZOV_SPACE
