#include "BmList.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "Md5Lanes.h"
#include "support/GoldenRows.h"
#include "support/SignatureText.h"
#include "support/Thrown.h"

namespace {

using Digest = std::string;  // 16 bytes.
const std::string kHex = "00112233445566778899aabbccddeeff";
const Digest kDigest("\x00\x11\x22\x33\x44\x55\x66\x77\x88\x99\xaa\xbb\xcc\xdd\xee\xff", 16);

// The name that the list has for a digest; empty when it has none.
std::string found(const BmList& list, const Digest& digest) {
    const char* const name = list.virusFoundMD5(reinterpret_cast<const unsigned char*>(digest.data()));
    return name ? name : "";
}

// What is wrong with the line, or "<nothing>".
std::string faultOf(BmList& list, const std::string& line) {
    return ZOV_SPACE::thrownBy<ZOV_SPACE::Exception>([&] { list.addString(line.c_str()); });
}

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

TEST(Md5, givesTheSameDigestsForManyContentsTogether) {
    std::mt19937 random(3);
    std::string bytes(300, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
    for (std::size_t round = 0; round < 2000; ++round) {
        std::vector<Md5Content> contents(round % 21);
        for (Md5Content& content : contents) {
            const std::size_t length = round % 2 ? random() % 301 : 64 * (random() % 4) + random() % 3;
            content.bytes = std::span(bytes).subspan(random() % (301 - length), length);
        }
        digestTogether(contents);
        for (const Md5Content& content : contents) {
            const std::string_view digest(reinterpret_cast<const char*>(content.digest.data()), content.digest.size());
            ASSERT_EQ(digest, md5Of({content.bytes.data(), content.bytes.size()})) << contents.size();
        }
    }
}

TEST(BmList, takesARecordLineOrSaysWhatIsWrongWithIt) {
    for (const GoldenRow& row : goldenRows(VOLE_SIGNATURE_ANSWERS, "md5")) {
        BmList list;
        std::string answer = faultOf(list, row[0]);
        if (list.count() > 0) answer += " [" + found(list, kDigest) + "]";
        for (const std::uint32_t size : {0U, 10U, 12U, 16U, 67U, 68U, 69U, 4711U, 0x7FFFFFFFU, 0x80000000U, ~0U}) {
            if (list.verifyFileSize(size)) answer += " " + std::to_string(size);
        }
        EXPECT_EQ(answer, row[1]) << row[2];
    }
}

TEST(BmList, findsEveryRecordInWhateverStepsItWasFilledAndTheNewestOfEqualOnes) {
    constexpr int kRecords = 200000;
    std::mt19937 random(2);
    std::vector<Digest> digests;
    for (int i = 0; i < kRecords; ++i) {
        Digest& digest = digests.emplace_back(16, '\0');
        std::generate(digest.begin(), digest.end(), [&] { return static_cast<char>(random()); });
        // Some differ from each other in a few bytes only, or share the bucket key of bytes 7 to 9.
        if (i % 3 == 1) digest.replace(0, 11, kDigest, 0, 11);
        if (i % 3 == 2) digest.replace(7, 3, "\x01\x02\x03");
    }
    BmList list;
    int next = 0;
    for (const int step : {1, 62, 1, 960, 1, 50000, 3, kRecords}) {
        for (const int end = std::min(kRecords, next + step); next < end; ++next) {
            list.append(toHex(digests[next]) + ":" + std::to_string(next * 7) + ":" + std::to_string(next));
        }
        for (const char* name : {"older", "newest"}) list.append(kHex + ":68:" + name);
        list.index();
        ASSERT_EQ(found(list, kDigest), "newest");
        for (const int i : {0, next / 2, next - 1}) ASSERT_EQ(found(list, digests[i]), std::to_string(i));
    }
    const std::set<Digest> known(digests.begin(), digests.end());
    for (int i = 0; i < kRecords; ++i) {
        ASSERT_EQ(found(list, digests[i]), std::to_string(i));
        Digest other = digests[i];
        other[i % 16] = static_cast<char>(other[i % 16] ^ (1 << i % 8));
        ASSERT_TRUE(known.contains(other) || found(list, other).empty()) << i;
        ASSERT_TRUE(list.verifyFileSize(static_cast<std::uint32_t>(i * 7)));
        ASSERT_FALSE(list.verifyFileSize(static_cast<std::uint32_t>(i * 7 + 1 + i % 6)));
    }
    list.reset();
    EXPECT_FALSE(list.verifyFileSize(68) || list.count() > 0);
    EXPECT_EQ(faultOf(list, kHex + ":68:again"), "<nothing>");
    EXPECT_EQ(found(list, kDigest), "again");
    EXPECT_TRUE(list.verifyFileSize(68)) << "the suppression of repeated sizes starts over, too";
}

}  // namespace
