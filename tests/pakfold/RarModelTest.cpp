#include "unarchiver/RarModel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <random>
#include <string>
#include <string_view>
#include <utility>

#include "support/PpmEncoder.h"
#include "support/Thrown.h"
#include "utils/Crc.h"

namespace ZOV_SPACE {
namespace {

constexpr int kEscape = PpmEncoder::kEscape;

// Bytes as the bit stream of one entry.
class Packed {
public:
    explicit Packed(std::string bytes)
        : _bytes(std::move(bytes)), _in(_bytes), bits(&_in, static_cast<std::int64_t>(_bytes.size())) {}

private:
    struct Source : InputStream {
        explicit Source(const std::string& source) : bytes(source) {}
        int read(char* buf, int len) override {
            const std::size_t n = bytes.copy(buf, static_cast<std::size_t>(len), position);
            position += n;
            return static_cast<int>(n);
        }
        const std::string& bytes;
        std::size_t position = 0;
    };

    std::string _bytes;
    Source _in;

public:
    RarBitInputStream bits;
};

std::string bytesOf(std::initializer_list<int> values) {
    std::string bytes;
    for (const int value : values) bytes += static_cast<char>(value);
    return bytes;
}

// Decodes blocks up to the end command. The failures are marked in angle brackets.
std::string decode(ModelPPM& model, RarBitInputStream& bits, std::size_t most = 1 << 24) {
    int escape = kEscape;
    std::string text;
    if (!model.DecodeInit(&bits, escape)) return "<no model>";
    while (text.size() < most) {
        int c = model.DecodeChar();
        if (c == escape) {
            const int command = model.DecodeChar();
            if (command == 2) return text;
            if (command == 0 && !model.DecodeInit(&bits, escape)) return text + "<no model>";
            if (command == 0) continue;
            if (command < 0) c = -1;
        }
        if (c < 0) return text + "<corrupt>";
        text += static_cast<char>(c);
    }
    return text;
}

// Lines that repeat words and letters unevenly, between them stretches of noise: contexts grow, die and are made anew.
std::string mixedText(std::size_t size, unsigned seed) {
    std::mt19937 numbers(seed);
    const auto below = [&numbers](unsigned bound) { return static_cast<unsigned>(numbers()) % bound; };
    std::string text;
    while (text.size() < size) {
        if (below(50) == 0) {
            for (int i = 0; i < 300; ++i) text += static_cast<char>(below(256));
        }
        const unsigned word = std::min(below(4000), below(4000));
        text += "word" + std::to_string(word * 2654435761U) + (below(9) == 0 ? ".\n" : " ");
        const unsigned run = below(64) == 0 ? below(700) : 0;
        text.append(run, static_cast<char>(below(4)));
    }
    text.resize(size);
    return text;
}

TEST(RarModel, blockHeader) {
    constexpr unsigned kMiB = 1 << 20;
    const struct {
        const char* what;
        std::string header;
        bool decodable;
        int order;
        unsigned size, heapBytes;
        int escape;
    } rows[] = {
        {"no model yet", bytesOf({0x80}), false, 0, 0, 0, kEscape},
        {"the highest order, and the smallest heap", bytesOf({0xBF, 0}), true, 64, kMiB, 1048584, kEscape},
        {"the highest order as it is, and an escape character", bytesOf({0xEF, 2, 'e'}), true, 16, 3 * kMiB, 3145740,
         'e'},
        {"the first order by threes", bytesOf({0x30, 1}), true, 19, 2 * kMiB, 2097156, kEscape},
        {"the lowest order", bytesOf({0x21, 0}), true, 2, kMiB, 1048584, kEscape},
        {"order 1", bytesOf({0x20, 0}), false, 0, 0, 0, kEscape},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Packed packed(row.header + "0000");
        ModelPPM model;
        int escape = kEscape;
        EXPECT_EQ(model.DecodeInit(&packed.bits, escape), row.decodable);
        EXPECT_EQ(model.maxOrder(), row.order);
        EXPECT_EQ(model.allocator().size(), row.size);
        EXPECT_EQ(model.allocator().heapBytes(), row.heapBytes);
        EXPECT_EQ(escape, row.escape);
    }
}

TEST(RarModel, keepsTheHeapOfTheSameSizeAndLosesItToOrder1) {
    ModelPPM model;
    int escape = kEscape;
    const auto init = [&](std::initializer_list<int> header) {
        Packed packed(bytesOf(header) + "0000");
        return model.DecodeInit(&packed.bits, escape);
    };
    ASSERT_TRUE(init({0xA5, 0}));
    const unsigned char* const heap = model.allocator().at(0);
    EXPECT_TRUE(init({0xA9, 0}));
    EXPECT_EQ(model.allocator().at(0), heap);
    EXPECT_EQ(model.maxOrder(), 10);
    EXPECT_TRUE(init({0x80}));
    EXPECT_FALSE(init({0xA0, 0}));
    EXPECT_EQ(model.allocator().size(), 0U);
    EXPECT_FALSE(init({0x80}));
}

// In a fresh model all 256 symbols are alike and the escape is as likely as one of them.
TEST(RarModel, firstSymbolsOfAFreshModel) {
    for (const unsigned symbol : {0U, 0x41U, 0xFFU}) {
        const std::uint32_t code = 0xFFFFFFFF / 257 * symbol + 1;
        Packed packed(bytesOf({0xA3, 0, static_cast<int>(code >> 24), static_cast<int>(code >> 16 & 0xFF),
                               static_cast<int>(code >> 8 & 0xFF), static_cast<int>(code & 0xFF)}) +
                      std::string(8, '\0'));
        ModelPPM model;
        int escape = kEscape;
        ASSERT_TRUE(model.DecodeInit(&packed.bits, escape));
        EXPECT_EQ(model.DecodeChar(), static_cast<int>(symbol));
    }
    Packed escaped("\xA3" + std::string(1, '\0') + "\xFF\xFF\xFF\xFE" + std::string(8, '\0'));
    ModelPPM model;
    int escape = kEscape;
    ASSERT_TRUE(model.DecodeInit(&escaped.bits, escape));
    EXPECT_EQ(model.DecodeChar(), -1) << "an escape from the empty context";
    EXPECT_EQ(model.DecodeChar(), -1) << "no model any more";
    Packed next(bytesOf({0x80, 0, 0, 0, 0}));
    EXPECT_FALSE(model.DecodeInit(&next.bits, escape)) << "nor for the next block";
}

// Two independent decoders were given the streams with these checksums and returned the text. All but the first run out
// of memory on the way.
TEST(RarModel, roundTripsThroughRestartsAndBlocks) {
    const struct {
        int order, megabytes;
        std::size_t size, blockBytes;
        std::uint32_t packedCrc;
    } rows[] = {{2, 1, 60'000, 7'000, 0x322D53AC},
                {6, 1, 700'000, 300'000, 0x6BF91844},
                {16, 2, 400'000, 400'000, 0xD60FDD5A},
                {64, 1, 300'000, 90'000, 0x2AAD66DC}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "order " << row.order);
        const std::string text = mixedText(row.size, static_cast<unsigned>(row.order));
        PpmEncoder encoder(row.order, row.megabytes);
        ModelPPM model;
        for (std::size_t at = 0, block = 0; at < text.size(); at += row.blockBytes, ++block) {
            if (block != 0) encoder.nextBlock(block == 2);
            encoder.text(std::string_view(text).substr(at, row.blockBytes));
        }
        const std::string stream = encoder.finish();
        EXPECT_EQ(Iso3309Crc().add(stream.data(), static_cast<unsigned>(stream.size())), row.packedCrc);
        Packed packed(stream);
        ASSERT_TRUE(decode(model, packed.bits) == text);
    }
}

// Noise behind a header is a valid code for a while; what it decodes to is up to it. It must only come to an end.
TEST(RarModel, endsOnNoiseAndDamage) {
    std::mt19937 random(7);
    const std::string text = mixedText(40'000, 1);
    PpmEncoder encoder(12, 1);
    encoder.text(text);
    const std::string good = encoder.finish();
    ModelPPM model;
    for (int round = 0; round < 60; ++round) {
        std::string bytes = good;
        if (round % 2 == 0) {
            bytes = bytesOf({static_cast<int>(0xA1 + random() % 0x1F), 0});
            for (int i = 0; i < 20'000; ++i) bytes += static_cast<char>(random());
        } else {
            bytes[2 + random() % (bytes.size() - 2)] ^= static_cast<char>(1 << random() % 8);
        }
        Packed packed(bytes);
        thrownBy([&] { decode(model, packed.bits, 1 << 20); });
    }
    Packed whole(good);
    EXPECT_TRUE(decode(model, whole.bits) == text) << "a new model, whatever was before";
}

TEST(RarModel, hasNoModelBehindATruncation) {
    PpmEncoder encoder(5, 1);
    encoder.text("abracadabra, abracadabra");
    const std::string good = encoder.finish();
    for (std::size_t size = 7; size < good.size(); ++size) {
        Packed packed(good.substr(0, size));
        ModelPPM model;
        ASSERT_EQ(thrownBy([&] { decode(model, packed.bits); }), "RarStream overflow.");
        ASSERT_EQ(model.DecodeChar(), -1);
    }
}

}  // namespace
}  // namespace ZOV_SPACE
