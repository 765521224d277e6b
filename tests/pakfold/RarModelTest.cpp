#include "rar/ppm/ModelPPM.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "rar/ppm/HeapAllowance.h"
#include "support/PpmEncoder.h"
#include "support/StringBuffer.h"
#include "support/Thrown.h"
#include "utils/Crc.h"

namespace ZOV_SPACE {
namespace {

constexpr int kEscape = PpmEncoder::kEscape;

// Bytes as the bit stream of one entry.
struct Packed {
    explicit Packed(const std::string& bytes) : source(bytes), bits(&source.stream, source.stream.available()) {}

    StringSource source;
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

TEST(RarModel, everySumOfFrequenciesLeavesOutWhatIsRuledOut) {
    std::mt19937 random(29);
    std::array<STATE, 256> states;
    for (unsigned i = 0; i < states.size(); ++i) {
        states[i].symbol = static_cast<unsigned char>(167 * i);
        states[i].frequency = static_cast<unsigned char>(i < 64 ? 255 : random());
        states[i].successor = static_cast<SubAllocator::Offset>(random());
    }
    for (unsigned count = 1; count <= states.size(); ++count) {
        RuledOutSymbols::Bits ruledOut{};
        for (unsigned char& bits : ruledOut) bits = static_cast<unsigned char>(random() & random());
        for (const RuledOutSymbols::Sum sum : RuledOutSymbols::availableSums()) {
            RuledOutSymbols::Frequencies found;
            std::uint32_t expected = 0;
            const std::uint32_t total = sum(ruledOut, states.data(), count, found);
            for (unsigned i = 0; i < count; ++i) {
                const unsigned symbol = states[i].symbol;
                const bool isRuledOut = ruledOut[symbol % 16 + symbol / 128 * 16] >> symbol / 16 % 8 & 1;
                EXPECT_EQ(found[i], isRuledOut ? 0 : states[i].frequency) << i << " of " << count;
                expected += found[i];
            }
            EXPECT_EQ(total, expected) << count;
        }
    }
}

TEST(RarModel, blockHeaders) {
    const struct {
        const char* what;
        std::string header;
        int order = 0;  // Not decodable.
        unsigned megabytes = 0;
        int escape = kEscape;
    } rows[] = {{"no model yet", bytesOf({0x80})},
                {"the highest order", bytesOf({0xBF, 0}), 64, 1},
                {"the highest as it is, and an escape", bytesOf({0xEF, 2, 'e'}), 16, 3, 'e'},
                {"the first order by threes", bytesOf({0x30, 1}), 19, 2},
                {"the lowest order", bytesOf({0x21, 0}), 2, 1},
                {"order 1", bytesOf({0x20, 0})},
                {"no model behind it", bytesOf({0x80})}};
    ModelPPM model;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Packed packed(row.header + "0000");
        int escape = kEscape;
        EXPECT_EQ(model.DecodeInit(&packed.bits, escape) ? model.maxOrder() : 0, row.order);
        EXPECT_EQ(model.allocator().size(), row.megabytes << 20);
        EXPECT_EQ(escape, row.escape);
    }
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

TEST(HeapAllowance, isWaitedForByThreadsThatHoldNone) {
    HeapAllowance allowance(100);
    allowance.take(80);
    allowance.take(80);  // Would wait for itself.
    allowance.giveBack(80);
    allowance.giveBack(80);
    std::atomic<int> taken = 0, most = 0;
    std::vector<std::thread> threads;
    for (const unsigned bytes : {100U, 60U, 40U, 30U, 10U, 100U}) {
        threads.emplace_back([&, bytes] {
            for (int round = 0; round < 300; ++round) {
                allowance.take(bytes);
                most = std::max(most.load(), taken += static_cast<int>(bytes));
                std::this_thread::yield();
                taken -= static_cast<int>(bytes);
                allowance.giveBack(bytes);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_LE(most, 100);
}

// Where addresses have 32 bits, there is room for a few of these heaps only.
TEST(RarModel, allThreadsGetTheirHeap) {
    std::atomic<int> models = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 24; ++i) {
        threads.emplace_back([&models] {
            Packed packed(bytesOf({0xA5, 255}) + "0000");
            ModelPPM model;
            int escape = kEscape;
            models += thrownBy([&] { models += model.DecodeInit(&packed.bits, escape) ? 0 : 100; }) == "<nothing>";
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(models, 24);
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
