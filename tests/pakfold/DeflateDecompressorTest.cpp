#include "unarchiver/DeflateDecompressor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "io/BufferBaseStreams.h"
#include "support/StringBuffer.h"
#include "support/Thrown.h"
#include "support/ZipBuilder.h"

namespace ZOV_SPACE {
namespace {

class Pieces : public OutputStream {
public:
    using OutputStream::write;
    int write(const char* buf, int len) override {
        bytes.append(buf, static_cast<std::size_t>(len));
        sizes.push_back(len);
        return len;
    }
    std::string bytes;
    std::vector<int> sizes;
};

class StopAtPiece : public DecompressProcessor {
public:
    explicit StopAtPiece(int number) : _left(number) {}
    int init() override { return 0; }
    int setFileName(std::string&) override { return 0; }
    int setContentType(std::string&) override { return 0; }
    int check(InputStream*) override { return 0; }
    int check(BufferBase*) override { return 0; }
    int requiredLength() override { return 0; }
    int getAction() override { return --_left == 0 ? kStop : 1; }

private:
    int _left;
};

TEST(DeflateDecompressor, writesInPiecesAndStandsBehindTheData) {
    constexpr int kPiece = DeflateDecompressor::kOutputPiece;
    std::string noise(100'000, '\0');  // More than one piece of input, too.
    std::mt19937 random(7);
    std::generate(noise.begin(), noise.end(), [&] { return static_cast<char>(random()); });
    const struct {
        std::string content;
        std::vector<int> pieces;
    } cases[] = {{"", {}},
                 {"x", {1}},
                 {std::string(kPiece, 'x'), {kPiece}},
                 {std::string(kPiece + 1, 'x'), {kPiece, 1}},
                 {std::string(2 * kPiece, 'x'), {kPiece, kPiece}},
                 {noise, {kPiece, 100'000 - kPiece}}};
    for (const auto& c : cases) {
        for (const int variant : {0, 1, 2, 3}) {
            const bool raw = variant % 2 == 0;
            const std::string packed = deflated(c.content, raw);
            const auto size = static_cast<std::int64_t>(packed.size());
            StringBuffer buffer(packed + "rest");
            BufferBaseInputStream in(&buffer);
            Pieces out;
            DeflateDecompressor(raw, nullptr)
                .decompress(in, variant < 2 ? size : DeflateDecompressor::kUnknownSize, out);
            EXPECT_EQ(out.bytes, c.content);
            EXPECT_EQ(out.sizes, c.pieces);
            EXPECT_EQ(in.available(), 4);
        }
    }
}

TEST(DeflateDecompressor, reportsDamageAfterWritingWhatCameBefore) {
    const std::string text = "abc", packed = deflated(text), damaged = "\x4b\x4c\x4a\x06\xff\xff\xff\xff";
    const std::string dictionary = "\x78\xbb" + std::string(8, '\1');
    const struct {
        std::string packed;
        std::int64_t size;
        bool raw;
        std::string thrown, written;
    } cases[] = {
        {damaged, 8, true, "inflate: error -3: invalid distance code", text},
        {damaged, -1, true, "inflate: error -3: invalid distance code", text},
        {packed, 8, false, "inflate: error -3: incorrect header check", ""},
        {dictionary, 10, false, "inflate: need dictionary", ""},
        {packed, 2, true, "inflate: error -5: ", "a"},
        {packed.substr(0, 2), -1, true, "inflate: error -5: ", "a"},
        {packed, 0, true, "inflate: error -5: ", ""},
        {packed, -2, true, "inflate: error -5: ", ""},
        {"", -1, true, "inflate: error -5: ", ""},
    };
    for (const auto& c : cases) {
        StringBuffer buffer(c.packed);
        BufferBaseInputStream in(&buffer);
        Pieces out;
        EXPECT_EQ(
            thrownBy<CompressionException>([&] { DeflateDecompressor(c.raw, nullptr).decompress(in, c.size, out); }),
            c.thrown);
        EXPECT_EQ(out.bytes, c.written);
    }
    struct : InputStream {
        int read(char*, int) override {
            ADD_FAILURE() << "read from";
            return 0;
        }
    } unmarkable;
    Pieces out;
    EXPECT_EQ(
        thrownBy<CompressionException>([&] { DeflateDecompressor(true, nullptr).decompress(unmarkable, 9, out); }),
        "mark() not supported by input stream");
}

TEST(DeflateDecompressor, asksTheProcessorBeforeEachPiece) {
    const std::string packed = deflated(std::string(200'000, 'x'));
    for (const int stopAt : {1, 2, 9}) {
        StringBuffer buffer(packed);
        BufferBaseInputStream in(&buffer);
        StopAtPiece processor(stopAt);
        Pieces out;
        DeflateDecompressor inflate(true, &processor);
        inflate.decompress(in, static_cast<std::int64_t>(packed.size()), out);
        EXPECT_EQ(out.bytes.size(),
                  std::min<std::size_t>(200'000, std::size_t{51'200} * static_cast<unsigned>(stopAt - 1)));
        EXPECT_EQ(std::to_string(inflate.getAlgorithm()) + inflate.getAlgorithmName(), "1inflate");
        EXPECT_EQ(thrownBy<ArchivingException>([&] { inflate.decompress(in, out); }), "Unimplemented");
    }
}

}  // namespace
}  // namespace ZOV_SPACE
