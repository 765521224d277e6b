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
#include "Md5Rounds.h"

namespace {

using ZOV_SPACE::loadU32;

template <int Round, int I>
inline void step(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d, const unsigned char* block) {
    static_assert(Round < 4 && I < 16);
    // cppcheck-suppress arrayIndexOutOfBounds
    a += loadU32(block + 4 * md5::wordIndex<Round>(I)) + md5::kSines[Round * 16 + I];
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
    a = std::rotl(a, md5::kShifts[Round][I % 4]) + b;
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
    _state = md5::kStart;
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
