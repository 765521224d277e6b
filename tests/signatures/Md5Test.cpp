#include "Md5.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>

#include "support/SignatureText.h"

namespace {

// The algorithm as its description reads, one step after the other, over a padded copy of the message.
std::string slowDigest(const std::string& message) {
    static constexpr int kTurns[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
    std::string padded = message + '\x80';
    padded.resize((padded.size() + 8 + 63) / 64 * 64 - 8);
    for (int i = 0; i < 8; ++i) padded += static_cast<char>(std::uint64_t{message.size()} * 8 >> 8 * i);

    std::uint32_t state[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    for (std::size_t block = 0; block < padded.size(); block += 64) {
        auto [a, b, c, d] = state;
        for (unsigned i = 0; i < 64; ++i) {
            const std::uint32_t mixes[4] = {(b & c) | (~b & d), (b & d) | (c & ~d), b ^ c ^ d, c ^ (b | ~d)};
            const unsigned words[4] = {i, 5 * i + 1, 3 * i + 5, 7 * i};
            std::uint32_t word = 0;
            for (unsigned k = 0; k < 4; ++k) {
                const char byte = padded[block + words[i / 16] % 16 * 4 + k];
                word |= std::uint32_t{static_cast<unsigned char>(byte)} << 8 * k;
            }
            const auto sine = static_cast<std::uint32_t>(std::floor(4294967296.0 * std::fabs(std::sin(i + 1.0))));
            const std::uint32_t sum = a + mixes[i / 16] + word + sine;
            a = d;
            d = c;
            c = b;
            b += std::rotl(sum, kTurns[i / 16][i % 4]);
        }
        state[0] += a;
        state[1] += b;
        state[2] += c;
        state[3] += d;
    }
    std::string digest;
    for (int i = 0; i < 16; ++i) digest += static_cast<char>(state[i / 4] >> 8 * (i % 4));
    return digest;
}

std::string randomBytes(std::size_t length) {
    std::mt19937 random(static_cast<unsigned>(length));
    std::string bytes(length, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    return bytes;
}

TEST(Md5, givesThePublishedDigests) {
    const struct {
        const char* message;
        const char* digest;
    } cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& c : cases) EXPECT_EQ(toHex(md5Of(c.message)), c.digest) << c.message;
}

TEST(Md5, agreesWithTheDescriptionAtEveryLengthAroundTheBlocks) {
    for (std::size_t length = 0; length <= 200; ++length) {
        const std::string message = randomBytes(length);
        ASSERT_EQ(toHex(md5Of(message)), toHex(slowDigest(message))) << length;
    }
    for (const std::size_t length : {65535U, 65536U, 65537U, 300001U}) {
        const std::string message = randomBytes(length);
        EXPECT_EQ(toHex(md5Of(message)), toHex(slowDigest(message))) << length;
    }
}

TEST(Md5, doesNotDependOnHowTheBytesAreCutUp) {
    const std::string message = randomBytes(200);
    const std::string expected = md5Of(message);
    Md5 md5;
    const auto finish = [&] {
        std::string digest(Md5::kDigestSize, '\0');
        md5.MD5Final(reinterpret_cast<unsigned char*>(digest.data()));
        md5.MD5Init();  // A context may be used again.
        return digest;
    };
    for (std::size_t split = 0; split <= message.size(); ++split) {
        md5.MD5Update(message.data(), split);
        md5.MD5Update(message.data() + split, message.size() - split);
        ASSERT_EQ(finish(), expected) << "split at " << split;
    }
    for (std::size_t piece = 1; piece <= 130; ++piece) {
        for (std::size_t at = 0; at < message.size(); at += piece) {
            md5.MD5Update(message.data() + at, std::min(piece, message.size() - at));
        }
        ASSERT_EQ(finish(), expected) << "pieces of " << piece;
    }
}

}  // namespace
