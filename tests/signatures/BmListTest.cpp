#include "BmList.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <vector>

#include "Exception.h"
#include "support/CapturedLog.h"
#include "support/SignatureText.h"

namespace {

using Digest = std::string;  // 16 bytes.

const std::string kHex = "00112233445566778899aabbccddeeff";
const Digest kDigest("\x00\x11\x22\x33\x44\x55\x66\x77\x88\x99\xaa\xbb\xcc\xdd\xee\xff", 16);

std::string lineOf(const Digest& digest, const std::string& name) { return toHex(digest) + ":68:" + name; }

// The name that the list has for a digest; empty when it has none.
std::string found(const BmList& list, const Digest& digest) {
    const BmPattern* const pattern = list.virusFoundMD5(reinterpret_cast<const unsigned char*>(digest.data()));
    return pattern ? pattern->name : "";
}

std::string faultOf(BmList& list, const std::string& line) {
    try {
        list.addString(line.c_str());
        return "";
    } catch (ZOV_SPACE::Exception& e) {
        return e.getMessage();
    }
}

Digest randomDigest(std::mt19937& random) {
    Digest digest(16, '\0');
    for (char& c : digest) c = static_cast<char>(random());
    return digest;
}

TEST(BmList, takesARecordLineOrSaysWhatIsWrongWithIt) {
    const auto malformed = [](const std::string& line) { return "Malformed md5 pattern [" + line + "]"; };
    const auto notHex = [](const std::string& text) { return "Malformed [" + text + "] in chk-sum string ."; };
    const struct {
        const char* why;
        std::string line;
        std::string fault;  // Empty: accepted.
        std::string name;
    } cases[] = {
        {"plain", kHex + ":68:Name", "", "Name"},
        {"upper case", "00112233445566778899AABBCCDDEEFF:68:Name", "", "Name"},
        {"what follows the name is ignored", kHex + ":68:Name:rest", "", "Name"},
        {"a name may hold anything else", kHex + ":68: a/b #1 ", "", " a/b #1 "},
        {"a run of colons separates once", kHex + ":68::Name", "", "Name"},
        {"shorter by a digit", kHex.substr(1) + ":68:Name", malformed(kHex.substr(1) + ":68:Name"), ""},
        {"longer by a digit", kHex + "0:68:Name", malformed(kHex + "0:68:Name"), ""},
        {"empty", "", malformed(""), ""},
        {"ends before the colon", kHex, malformed(kHex), ""},
        {"ends behind the colon", kHex + ":", malformed(kHex + ":"), ""},
        {"no name", kHex + ":68", malformed(kHex + ":68"), ""},
        {"empty name", kHex + ":68:", malformed(kHex + ":68:"), ""},
        {"no size", kHex + "::Name", malformed(kHex + "::Name"), ""},
        {"first digit", "g" + kHex.substr(1) + ":68:Name", notHex("g" + kHex.substr(1)), ""},
        {"last digit", kHex.substr(1) + "/:68:Name", notHex(kHex.substr(1) + "/"), ""},
        {"no ASCII", "\xE9" + kHex.substr(1) + ":68:Name", notHex("\xE9" + kHex.substr(1)), ""},
    };
    for (const auto& c : cases) {
        BmList list;
        EXPECT_EQ(faultOf(list, c.line), c.fault) << c.why;
        EXPECT_EQ(list.count(), c.fault.empty() ? 1U : 0U) << c.why;
        EXPECT_EQ(found(list, kDigest), c.name) << c.why;
    }
}

TEST(BmList, readsSizesAsA32BitSystemWould) {
    const struct {
        const char* text;
        std::uint32_t size;
    } cases[] = {
        {"68", 68},
        {"0", 0},
        {"-1", 4294967295U},
        {"2147483647", 2147483647U},
        {"2147483648", 2147483647U},
        {"4294967296", 2147483647U},
        {"99999999999999999999999", 2147483647U},
        {"-99999999999999999999999", 2147483648U},
        {" \t12", 12},
        {"+7", 7},
        {"12kB", 12},
        {"0x10", 0},
        {"many", 0},
    };
    for (const auto& c : cases) {
        BmList list;
        EXPECT_EQ(faultOf(list, kHex + ":" + c.text + ":Name"), "") << c.text;
        EXPECT_TRUE(list.verifyFileSize(c.size)) << c.text;
        for (const std::uint32_t other : {0U, c.size - 1, c.size + 1}) {
            EXPECT_EQ(list.verifyFileSize(other), other == c.size) << c.text << ", asked for " << other;
        }
    }
}

TEST(BmList, keepsTheSizeOfALineThatItRefusesLater) {
    BmList list;
    EXPECT_NE(faultOf(list, "x" + kHex.substr(1) + ":4711:Name"), "");
    EXPECT_TRUE(list.verifyFileSize(4711)) << "the digest is looked at after the size";
    EXPECT_NE(faultOf(list, kHex + ":4712:"), "");
    EXPECT_FALSE(list.verifyFileSize(4712)) << "the name is looked for before the size";
}

TEST(BmList, findsTheNewestOfEqualDigests) {
    BmList list;
    list.addString(lineOf(kDigest, "first").c_str());
    list.addString(lineOf(kDigest, "second").c_str());
    EXPECT_EQ(found(list, kDigest), "second");
    // In one step with others, and with tables that have to grow.
    std::mt19937 random(1);
    list.append(lineOf(kDigest, "third"));
    for (int i = 0; i < 5000; ++i) list.append(lineOf(randomDigest(random), "other"));
    list.append(lineOf(kDigest, "fourth"));
    EXPECT_EQ(found(list, kDigest), "second") << "not indexed yet";
    list.index();
    EXPECT_EQ(found(list, kDigest), "fourth");
    EXPECT_EQ(list.count(), 5004U);
}

TEST(BmList, findsEveryRecordInWhateverStepsItWasFilled) {
    constexpr int kRecords = 200000;
    std::mt19937 random(2);
    std::vector<Digest> digests;
    for (int i = 0; i < kRecords; ++i) {
        Digest digest = randomDigest(random);
        // Some differ from each other in a few bytes only, or share the bucket key of bytes 7 to 9.
        if (i % 3 == 1) digest.replace(0, 11, kDigest, 0, 11);
        if (i % 3 == 2) digest.replace(7, 3, "\x01\x02\x03");
        digests.push_back(digest);
    }
    BmList list;
    int next = 0;
    for (const int step : {1, 62, 1, 960, 1, 50000, 3, kRecords}) {
        for (const int end = std::min(kRecords, next + step); next < end; ++next) {
            ASSERT_FALSE(
                list.append(toHex(digests[next]) + ":" + std::to_string(next * 7) + ":" + std::to_string(next)));
        }
        list.index();
        ASSERT_EQ(found(list, digests[next - 1]), std::to_string(next - 1));
        ASSERT_EQ(found(list, digests[next / 2]), std::to_string(next / 2));
    }
    const std::set<Digest> known(digests.begin(), digests.end());
    ASSERT_EQ(known.size(), digests.size()) << "the digests were meant to differ";
    for (int i = 0; i < kRecords; ++i) {
        ASSERT_EQ(found(list, digests[i]), std::to_string(i));
        Digest other = digests[i];
        other[i % 16] = static_cast<char>(other[i % 16] ^ (1 << i % 8));
        if (!known.contains(other)) {
            ASSERT_EQ(found(list, other), "") << i;
        }
        ASSERT_TRUE(list.verifyFileSize(static_cast<std::uint32_t>(i * 7)));
        ASSERT_FALSE(list.verifyFileSize(static_cast<std::uint32_t>(i * 7 + 1 + i % 6)));
    }
}

TEST(BmList, acceptsNoMoreThanWasAnnounced) {
    CapturedLog log(CapturedLog::kErrors);
    std::mt19937 random(3);
    const auto add = [&](BmList& list) { return faultOf(list, lineOf(randomDigest(random), "n")); };
    const std::string full = "current_sig >= total_sigs";
    BmList list;
    EXPECT_EQ(add(list), "");
    list.allocate(2);
    EXPECT_EQ(add(list), "");
    EXPECT_EQ(add(list), "");
    EXPECT_EQ(add(list), full);
    list.allocate(0);
    list.allocate(-5);
    EXPECT_EQ(add(list), full) << "senseless announcements change nothing";
    list.beginFile();
    EXPECT_EQ(add(list), "") << "an announcement holds for its own file";
    list.allocate(INT32_MAX, 1);
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(add(list), "");
    EXPECT_EQ(list.count(), 1004U);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{full, full}));
}

TEST(BmList, isAsNewAfterReset) {
    BmList list;
    list.allocate(1);
    list.addString(lineOf(kDigest, "old").c_str());
    list.reset();
    EXPECT_EQ(list.count(), 0U);
    EXPECT_EQ(found(list, kDigest), "");
    EXPECT_FALSE(list.verifyFileSize(68));
    list.addString(lineOf(kDigest, "new").c_str());
    list.addString(lineOf(Digest(16, 'x'), "another").c_str());
    EXPECT_EQ(found(list, kDigest), "new");
    EXPECT_TRUE(list.verifyFileSize(68)) << "the suppression of repeated sizes starts over, too";
}

}  // namespace
