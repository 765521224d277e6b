#include "BmList.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "support/SignatureText.h"
#include "support/Thrown.h"

namespace {

using Digest = std::string;  // 16 bytes.
const std::string kHex = "00112233445566778899aabbccddeeff";
const Digest kDigest("\x00\x11\x22\x33\x44\x55\x66\x77\x88\x99\xaa\xbb\xcc\xdd\xee\xff", 16);

// The name that the list has for a digest; empty when it has none.
std::string found(const BmList& list, const Digest& digest) {
    const BmPattern* const pattern = list.virusFoundMD5(reinterpret_cast<const unsigned char*>(digest.data()));
    return pattern ? pattern->name : "";
}

// What is wrong with the line, or "<nothing>".
std::string faultOf(BmList& list, const std::string& line) {
    return ZOV_SPACE::thrownBy<ZOV_SPACE::Exception>([&] { list.addString(line.c_str()); });
}

TEST(BmList, takesARecordLineOrSaysWhatIsWrongWithIt) {
    enum Fault { kNone, kMalformed, kNotHex };
    const struct {
        std::string digest, rest;
        Fault fault;
        std::uint32_t size = 68;  // Read as a 32-bit system would, and before the digest.
    } cases[] = {
        {"00112233445566778899AABBCCDDEEFF", ":68:: a/b #1 :rest", kNone},
        {kHex.substr(1), ":68:Name", kMalformed, 0},
        {kHex, "", kMalformed, 0},
        {kHex, ":68:", kMalformed, 0},
        {kHex, "::Name", kMalformed, 0},
        {"\xE9" + kHex.substr(1), ":4711:Name", kNotHex, 4711},
        {kHex, ":2147483648: a/b #1 ", kNone, 0x7FFFFFFF},
        {kHex, ":-99999999999999999999999: a/b #1 ", kNone, 0x80000000},
        {kHex, ": \t+12kB: a/b #1 ", kNone, 12},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.digest + c.rest);
        BmList list;
        const std::string faults[] = {"<nothing>", "Malformed md5 pattern [" + c.digest + c.rest + "]",
                                      "Malformed [" + c.digest + "] in chk-sum string ."};
        EXPECT_EQ(faultOf(list, c.digest + c.rest), faults[c.fault]);
        EXPECT_EQ(found(list, kDigest), c.fault == kNone ? " a/b #1 " : "");
        EXPECT_EQ(list.verifyFileSize(c.size), c.fault != kMalformed);
        EXPECT_FALSE(list.verifyFileSize(c.size - 1) || list.verifyFileSize(c.size + 1));
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
