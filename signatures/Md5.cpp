// MD5 as RFC 1321 describes it: the message, padded with a bit 1, zeros and its length to a multiple of 64 bytes, is
// mixed into four words of state block by block, in four rounds of sixteen steps with a function each (section 3.4).
// The steps are unrolled by templates, so that shifts, constants and places in the block are known when it is compiled.
// Two things make the difference in speed, because each step depends on the one before: everything that does not need
// the newest value `b` is added first, and round 2 adds its two halves one after the other (their bits never overlap,
// so "+" equals "|"), which takes one operation out of the chain.
#include "Md5.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "ByteOrder.h"

namespace {

using ZOV_SPACE::loadU32;

// floor(2^32 * abs(sin(i + 1))).
constexpr std::uint32_t kSines[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};

constexpr int kShifts[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

// Which word of the block a step takes: i, 5i + 1, 3i + 5 and 7i, modulo 16.
template <int Round>
constexpr int wordIndex(int i) {
    constexpr int kFactors[4] = {1, 5, 3, 7};
    constexpr int kOffsets[4] = {0, 1, 5, 0};
    return (kFactors[Round] * i + kOffsets[Round]) % 16;
}

template <int Round, int I>
inline void step(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d, const unsigned char* block) {
    static_assert(Round < 4 && I < 16);
    // cppcheck-suppress arrayIndexOutOfBounds
    a += loadU32(block + 4 * wordIndex<Round>(I)) + kSines[Round * 16 + I];
    if constexpr (Round == 0) {
        a += d ^ (b & (c ^ d));
    } else if constexpr (Round == 1) {
        a += ~d & c;
        a += d & b;
    } else if constexpr (Round == 2) {
        a += b ^ (c ^ d);
    } else {
        a += c ^ (b | ~d);
    }
    a = std::rotl(a, kShifts[Round][I % 4]) + b;
}

template <int Round, int I = 0>
inline void round(std::uint32_t& a, std::uint32_t& b, std::uint32_t& c, std::uint32_t& d, const unsigned char* block) {
    step<Round, I>(a, b, c, d, block);
    step<Round, I + 1>(d, a, b, c, block);
    step<Round, I + 2>(c, d, a, b, block);
    step<Round, I + 3>(b, c, d, a, block);
    if constexpr (I + 4 < 16) round<Round, I + 4>(a, b, c, d, block);
}

}  // namespace

void Md5::MD5Init() {
    _state = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    _byteCount = 0;
}

void Md5::MD5Transform(const unsigned char* blocks, std::size_t blockCount) {
    auto [a, b, c, d] = _state;
    for (; blockCount > 0; --blockCount, blocks += kBlockSize) {
        const auto [a0, b0, c0, d0] = std::array{a, b, c, d};
        round<0>(a, b, c, d, blocks);
        round<1>(a, b, c, d, blocks);
        round<2>(a, b, c, d, blocks);
        round<3>(a, b, c, d, blocks);
        a += a0;
        b += b0;
        c += c0;
        d += d0;
    }
    _state = {a, b, c, d};
}

void Md5::MD5Update(const char* data, std::size_t length) {
    auto bytes = reinterpret_cast<const unsigned char*>(data);
    const std::size_t buffered = _byteCount % kBlockSize;
    _byteCount += length;
    if (buffered > 0) {
        const std::size_t taken = std::min(length, kBlockSize - buffered);
        std::copy_n(bytes, taken, _block.data() + buffered);
        if (buffered + taken < kBlockSize) return;
        MD5Transform(_block.data(), 1);
        bytes += taken;
        length -= taken;
    }
    MD5Transform(bytes, length / kBlockSize);
    std::copy_n(bytes + (length - length % kBlockSize), length % kBlockSize, _block.data());
}

void Md5::MD5Final(unsigned char* digest) {
    static constexpr char kPadding[kBlockSize] = {'\x80'};
    constexpr std::size_t kLengthSize = 8;  // The message's length in bits ends the last block.
    const std::uint64_t bitCount = _byteCount * 8;
    const std::size_t buffered = _byteCount % kBlockSize;
    const std::size_t room = kBlockSize - kLengthSize;
    MD5Update(kPadding, buffered < room ? room - buffered : room + kBlockSize - buffered);
    char length[kLengthSize];
    ZOV_SPACE::storeLittleEndian(length, bitCount);
    MD5Update(length, sizeof length);
    std::memcpy(digest, _state.data(), kDigestSize);
}
