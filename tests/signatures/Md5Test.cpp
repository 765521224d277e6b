#include "Md5.h"

#include <gtest/gtest.h>

#include <string>

#include "support/SignatureText.h"

namespace {

TEST(Md5, givesKnownDigestsHoweverTheBytesAreCutUp) {
    EXPECT_EQ(toHex(md5Of("message digest")), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(toHex(md5Of(std::string(65537, 'a'))), "b3c6fc238e908636e53aabd5ad830cf7");
    // Every length around the first blocks: the digest of their digests, as another program gives it.
    std::string digests;
    Md5 md5;
    for (std::size_t length = 0; length <= 200; ++length) {
        const std::string message(length, 'a');
        digests += toHex(md5Of(message));
        for (std::size_t at = 0; at < length; at += length % 70 + 1) {
            md5.MD5Update(message.data() + at, std::min(length % 70 + 1, length - at));
        }
        std::string digest(Md5::kDigestSize, '\0');
        md5.MD5Final(reinterpret_cast<unsigned char*>(digest.data()));
        EXPECT_EQ(digest, md5Of(message)) << length;
        md5.MD5Init();  // A context may be used again.
    }
    EXPECT_EQ(toHex(md5Of(digests)), "e3064b4a8a2aa7a755ef18f8faf582bb");
}

}  // namespace
