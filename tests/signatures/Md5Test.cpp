#include "Md5.h"

#include <gtest/gtest.h>

#include <string>

#include "support/SignatureText.h"

namespace {

TEST(Md5, givesKnownDigests) {
    const struct {
        std::string message;
        const char* digest;
    } cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
        {std::string(65537, 'a'), "b3c6fc238e908636e53aabd5ad830cf7"},
    };
    for (const auto& c : cases) EXPECT_EQ(toHex(md5Of(c.message)), c.digest) << c.message.size();
    // Every length around the first blocks: the digest of their digests, as another program gives it.
    std::string digests;
    for (std::size_t length = 0; length <= 200; ++length) digests += toHex(md5Of(std::string(length, 'a')));
    EXPECT_EQ(toHex(md5Of(digests)), "e3064b4a8a2aa7a755ef18f8faf582bb");
}

TEST(Md5, doesNotDependOnHowTheBytesAreCutUp) {
    std::string message;
    for (int i = 0; i < 200; ++i) message += static_cast<char>(i * 7);
    Md5 md5;
    for (std::size_t piece = 1; piece <= message.size(); ++piece) {
        for (std::size_t at = 0; at < message.size(); at += piece) {
            md5.MD5Update(message.data() + at, std::min(piece, message.size() - at));
        }
        std::string digest(Md5::kDigestSize, '\0');
        md5.MD5Final(reinterpret_cast<unsigned char*>(digest.data()));
        ASSERT_EQ(digest, md5Of(message)) << "pieces of " << piece;
        md5.MD5Init();  // A context may be used again.
    }
}

}  // namespace
