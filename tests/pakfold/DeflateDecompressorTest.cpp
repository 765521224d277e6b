#include "zip/DeflateDecompressor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/StopAfter.h"
#include "support/StringBuffer.h"
#include "support/Thrown.h"
#include "support/ZipBuilder.h"

namespace ZOV_SPACE {
namespace {

struct Pieces : OutputStream {
    using OutputStream::write;
    int write(const char* buf, int len) override {
        bytes.append(buf, static_cast<std::size_t>(len));
        sizes.push_back(len);
        return len;
    }
    std::string bytes;
    std::vector<int> sizes;
};

TEST(DeflateDecompressor, writesInPiecesAndStandsBehindTheData) {
    constexpr int kPiece = 51'200;
    std::string noise(100'000, '\0');  // More than one piece of input, too.
    std::mt19937 random(7);
    std::generate(noise.begin(), noise.end(), [&] { return static_cast<char>(random()); });
    const std::string behind(40'000, 'b');  // The same.
    const std::pair<std::string, std::vector<int>> cases[] = {
        {"", {}}, {std::string(kPiece, 'x'), {kPiece}}, {noise, {kPiece, 100'000 - kPiece}}};
    for (const auto& [content, pieces] : cases) {
        for (const bool raw : {true, false}) {
            const std::string packed = deflated(content, raw);
            const auto size = static_cast<std::int64_t>(packed.size());
            for (const std::int64_t announced : {size, size + 39'000, DeflateDecompressor::kUnknownSize}) {
                SCOPED_TRACE(testing::Message() << content.size() << " raw " << raw << " size " << announced);
                StringSource source(packed + behind);
                Pieces out;
                DeflateDecompressor(raw, nullptr).decompress(source.stream, announced, out);
                EXPECT_EQ(out.bytes, content);
                EXPECT_EQ(out.sizes, pieces);
                EXPECT_TRUE(source.stream.available() == 40'000 || announced > size);
            }
        }
    }
}

TEST(DeflateDecompressor, reportsDamageAfterWritingWhatCameBefore) {
    const std::string packed = deflated("abc"), damaged = "\x4b\x4c\x4a\x06\xff\xff\xff\xff";
    const std::string dictionary = "\x78\xbb" + std::string(8, '\1');
    const std::string code = "inflate: error -3: invalid distance code", early = "inflate: error -5: ";
    const std::tuple<std::string, std::int64_t, bool, std::string, std::string> cases[] = {
        {damaged, 8, true, code, "abc"},
        {damaged, -1, true, code, "abc"},
        {packed, 8, false, "inflate: error -3: incorrect header check", ""},
        {dictionary, 10, false, "inflate: need dictionary", ""},
        {packed, 2, true, early, "a"},
        {packed.substr(0, 2), -1, true, early, "a"},
        {packed, 0, true, early, ""},
        {packed, -2, true, early, ""},
        {"", -1, true, early, ""},
    };
    Pieces out;
    for (const auto& [input, size, raw, error, written] : cases) {
        StringSource source(input);
        out.bytes.clear();
        const auto inflate = [&, size = size, raw = raw] {
            DeflateDecompressor(raw, nullptr).decompress(source.stream, size, out);
        };
        EXPECT_EQ(thrownBy<CompressionException>(inflate) + " " + out.bytes, error + " " + written)
            << testing::PrintToString(input) << " size " << size;
    }
    struct : InputStream {
        int read(char*, int) override { return ADD_FAILURE() << "read from", 0; }
    } unmarkable;
    DeflateDecompressor inflate(true, nullptr);
    EXPECT_EQ(thrownBy<CompressionException>([&] { inflate.decompress(unmarkable, 9, out); }),
              "mark() not supported by input stream");
    EXPECT_EQ(thrownBy<ArchivingException>([&] { inflate.decompress(unmarkable, out); }), "Unimplemented");
}

struct Lender : Pieces {
    std::span<char> lendSpace() override { return space; }
    void commitSpace(long n) override { write(space.data(), static_cast<int>(n)); }
    bool takesAtOnce(std::int64_t n) const override { return n <= most; }
    void commitSummed(long n, std::uint32_t) override { isWhole = true, commitSpace(n); }
    std::string space;
    std::int64_t most = 0;
    bool isWhole = false;
};

TEST(DeflateDecompressor, inflatesInOneGoWhatComesOutAsAnnounced) {
    const std::string content(90'000, 'x'), packed = deflated(content) + "behind";
    constexpr std::int64_t kSize = 90'000;
    const std::uint32_t sum = Iso3309Crc().add(content.data(), kSize);
    // What is announced, how much is lent, how much is taken at once, and whether it comes so.
    const std::tuple<InflatedAs, std::size_t, std::int64_t, bool> cases[] = {
        {{kSize, sum}, kSize, kSize, true},        {{kSize, sum}, kSize, kSize - 1, false},
        {{kSize, sum}, kSize - 1, kSize, false},   {{kSize, sum ^ 1}, kSize, kSize, false},
        {{kSize - 1, sum}, kSize, kSize, false},   {{kSize + 1, sum}, kSize + 1, kSize + 1, false},
        {{1 << 24, sum}, 1 << 24, 1 << 24, false},
    };
    for (const auto& [announced, loan, most, isWhole] : cases) {
        SCOPED_TRACE(testing::Message() << announced.size << " " << loan << " " << most);
        StringSource source(packed);
        Lender out;
        out.space.resize(loan);
        out.most = most;
        DeflateDecompressor inflate(true, nullptr);
        EXPECT_EQ(inflate.decompress(source.stream, static_cast<std::int64_t>(packed.size()), out, announced), 6);
        EXPECT_EQ(out.bytes, content);
        EXPECT_EQ(out.isWhole, isWhole && announced.isTried(1));  // Which no data is in builds without libdeflate.
    }
}

TEST(DeflateDecompressor, asksTheProcessorBeforeEachPiece) {
    const std::string packed = deflated(std::string(200'000, 'x'));
    for (const int pieces : {0, 1, 8}) {
        StringSource source(packed);
        StopAfter processor(pieces);
        Pieces out;
        DeflateDecompressor(true, &processor).decompress(source.stream, DeflateDecompressor::kUnknownSize, out);
        EXPECT_EQ(static_cast<int>(out.bytes.size()), std::min(200'000, 51'200 * pieces));
    }
}

}  // namespace
}  // namespace ZOV_SPACE
