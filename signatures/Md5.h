// Md5: the MD5 message digest (RFC 1321). A context is used by one thread at a time and may be reused after MD5Init().
#ifndef SIGNATURES_MD5_H
#define SIGNATURES_MD5_H

#include <array>
#include <cstddef>
#include <cstdint>

class Md5 {
public:
    static constexpr std::size_t kDigestSize = 16;
    static constexpr std::size_t kBlockSize = 64;

    using State = std::array<std::uint32_t, 4>;

    Md5() { MD5Init(); }
    // Goes on behind whole blocks, of so many bytes in all, that are mixed into the state already.
    Md5(const State& state, std::uint64_t byteCount) : _state(state), _byteCount(byteCount) {}

    void MD5Init();
    void MD5Update(const char* data, std::size_t length);
    // Writes the 16-byte digest of all bytes given since MD5Init(). The context must be initialised again before it is
    // given more bytes.
    void MD5Final(unsigned char* digest);

private:
    void MD5Transform(const unsigned char* blocks, std::size_t blockCount);

    State _state;
    std::uint64_t _byteCount;
    std::array<unsigned char, kBlockSize> _block;  // The start of a block that is not complete yet.
};

using Md5Digest = std::array<unsigned char, Md5::kDigestSize>;

#endif  // SIGNATURES_MD5_H
