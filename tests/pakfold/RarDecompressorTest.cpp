#include "rar/RarDecompressor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "EntryStreams.h"
#include "rar/RarVMOutputStream.h"
#include "support/PpmEncoder.h"
#include "support/RarBuilder.h"
#include "support/RarEncoder.h"
#include "support/StopAfter.h"
#include "support/StringBuffer.h"
#include "support/Thrown.h"
#include "unarchiver/ScanBudget.h"
#include "unused/OutputStreams.h"
#include "utils/Crc.h"

namespace ZOV_SPACE {
namespace {

using Bytes = std::vector<unsigned char>;

constexpr int kSolid = 0x10;

// Unpacks the next entry of the decompressor's archive.
void unpackTo(OutputStream& out, RarDecompressor& rar, const std::string& packed, std::size_t size, int version,
              int solid = 0) {
    StringSource source(packed);
    rar.decompress(source.stream, source.stream.available(), out, static_cast<std::int64_t>(size), version, solid);
    EXPECT_EQ(source.stream.available(), 0) << "Packed bytes were left.";
}

std::string unpack(RarDecompressor& rar, const std::string& packed, std::size_t size, int version, int solid = 0) {
    StringOutputStream out;
    unpackTo(out, rar, packed, size, version, solid);
    return out.getString();
}

std::string unpack(const std::string& packed, std::size_t size, int version) {
    RarDecompressor rar(nullptr);
    return unpack(rar, packed, size, version);
}

// Strings as long as whole windows make no useful message.
testing::AssertionResult same(const std::string& a, const std::string& b) {
    if (a == b) return testing::AssertionSuccess();
    const auto at = std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first - a.begin();
    return testing::AssertionFailure() << "sizes " << a.size() << " and " << b.size() << ", differ at " << at;
}

class Writer {
public:
    Writer(RarEncoder& encoder, unsigned seed) : _encoder(encoder), _random(seed) {}

    // Adds about `size` bytes: literals, and all kinds of matches at all kinds of distances.
    void write(std::size_t size, bool is20) {
        for (const std::size_t end = _encoder.unpacked().size() + size; _encoder.unpacked().size() < end;) {
            switch (_random() % 8) {
                case 0:
                    _encoder.shortMatch(1 + below(256));
                    break;
                case 1:
                    _encoder.repeatMatch();
                    break;
                case 2:
                    _encoder.oldDistance(below(4), 5 + below(200));
                    break;
                case 3: {
                    const std::uint32_t most = is20 ? 1 << 20 : RarEncoder::kWindowBytes;
                    const std::uint32_t far = 1 + (_random() % 4 ? below(1U << below(21)) : below(most));
                    _encoder.match(_random() % 64 ? far : most - below(20), 5 + below(_random() % 4 ? 12 : 250));
                    break;
                }
                case 4:
                    if (!is20 && _random() % 32 == 0) {
                        _encoder.repeatLowBits();
                        const std::uint32_t low = _encoder.lowBits() + 65;
                        for (int i = 0; i < 16; ++i) _encoder.match(low + 16 * below(5000), 5 + below(12));
                    }
                    break;
                default:
                    _encoder.literal(static_cast<char>(below(1U << below(9))));
            }
        }
    }

private:
    std::uint32_t below(std::uint32_t n) { return static_cast<std::uint32_t>(_random()) % std::max(n, 1U); }

    RarEncoder& _encoder;
    std::mt19937 _random;
};

TEST(RarDecompressor, saysWhatItDoesNotDo) {
    RarDecompressor rar(nullptr);
    StringOutputStream out;
    StringSource source("");
    EXPECT_EQ(thrownBy<CompressionException>([&] { rar.decompress(source.stream, out); }),
              "RarDecompressor::decompress() is not implemented");
    for (const int version : {15, 36, 0, 21, -1}) {
        EXPECT_EQ(thrownBy<CompressionException>([&] { unpack(rar, "x", 1, version); }),
                  "Unsupported RAR unpack version:" + std::to_string(version));
    }
    EXPECT_EQ(unitThrownBy([&] { unpack(rar, "x", 1, 15); }), "../../core/pakfold/src/unarchiver/RarCompressor");
}

TEST(RarDecompressor, unpacksEveryKindOfMatchOverBlocksAndEntries) {
    for (const int version : {20, 29}) {
        for (unsigned seed = 0; seed < 30; ++seed) {
            SCOPED_TRACE(testing::Message() << "version " << version << " seed " << seed);
            RarEncoder encoder(version);
            Writer writer(encoder, seed);
            RarDecompressor rar(nullptr);
            // The first half of the entries begin with tables, and the others continue with the ones before them.
            for (int entry = 0; entry < 4; ++entry) {
                for (unsigned block = 0; block < seed % 3; ++block) {
                    writer.write(1U << (seed % 16), version == 20);
                    encoder.nextBlock(seed % 2 == 0);
                }
                writer.write(seed * 400, version == 20);
                const std::string packed = encoder.finish(entry < 2);
                const std::string expected = encoder.takeEntry();
                ASSERT_TRUE(same(unpack(rar, packed, expected.size(), version == 20 && seed % 2 ? 26 : version,
                                        entry == 0 ? 0 : kSolid),
                                 expected));
            }
        }
    }
}

TEST(RarDecompressor, goesRoundTheWindow) {
    for (const int version : {20, 29}) {
        RarEncoder encoder(version);
        Writer writer(encoder, 7);
        RarDecompressor rar(nullptr);
        for (int entry = 0; entry < 2; ++entry) {
            writer.write(5 << 20, version == 20);
            const std::string packed = encoder.finish(true);
            const std::string expected = encoder.takeEntry();
            ASSERT_TRUE(same(unpack(rar, packed, expected.size(), version, entry * kSolid), expected));
        }
        // A fresh entry finds nothing of them.
        RarEncoder fresh(version);
        for (std::uint32_t i = 1; i < 1000; ++i) fresh.match(i * 1000, 200);
        const std::string packed = fresh.finish();
        ASSERT_TRUE(same(unpack(rar, packed, fresh.unpacked().size(), version), fresh.unpacked()));
    }
}

TEST(RarDecompressor, methodsMixInOneChain) {
    RarEncoder first(20), second(29);
    first.text("0123456789abcdef");
    first.match(5, 20);
    RarDecompressor rar(nullptr);
    EXPECT_EQ(unpack(rar, first.finish(), first.unpacked().size(), 20), first.unpacked());
    // No history of the encoder's own: distances reach into the entry before.
    second.text("xy");
    second.match(16 + 20 + 2, 16);
    EXPECT_EQ(unpack(rar, second.finish(), 18, 29, kSolid), "xy0123456789abcdef");
}

// Text with some order in it, so that models have something to learn.
std::string words(std::size_t count, unsigned seed) {
    std::minstd_rand random(seed);
    std::string text;
    for (; count > 0; --count) {
        text += std::to_string(random() % 300 * (random() % 7));
        text += random() % 50 ? " " : "\x02\n";
    }
    return text;
}

// Tables whose symbols all have eight bits, by the ninth of the code lengths, and differences that are small mostly.
std::string soundOf(unsigned channels, unsigned count) {
    RarBitWriter bits;
    bits.put(2, 2), bits.put(channels - 1, 2);
    for (unsigned i = 0; i < 19; ++i) bits.put(i == 8 || i == 0 ? 1 : 0, 4);
    for (unsigned i = 0; i < 257 * channels; ++i) bits.put(i % 257 == 256 ? 0 : 1, 1);
    std::minstd_rand random(channels);
    for (; count > 0; --count) {
        const auto size = static_cast<unsigned>(random() % 9);
        bits.put(static_cast<std::uint32_t>(random() % (1U << size)) - (size ? 1U << (size - 1) : 0U), 8);
    }
    return {bits.bytes().begin(), bits.bytes().end()};
}

void addFilter(RarEncoder& encoder, std::uint32_t number, std::uint32_t ahead, std::uint32_t length,
               const std::vector<unsigned char>& program = {}) {
    encoder.filter(kFilterHead, filterOf(number, ahead, length, program));
}

void increment(std::string& text, std::size_t begin, std::size_t length) {
    for (std::size_t i = begin; i < begin + length; ++i) text[i] = static_cast<char>(text[i] + 1);
}

TEST(RarDecompressor, filtersChangeTheirBlocks) {
    RarEncoder encoder(29);
    addFilter(encoder, 0, 5, 100, incrementProgram());
    Writer(encoder, 9).write(300, false);
    const auto middle = encoder.unpacked().size();
    addFilter(encoder, 1, 0, 50);
    addFilter(encoder, 1, 0, 50);          // Twice.
    addFilter(encoder, 1, 20, 10);         // Inside a block: too late.
    addFilter(encoder, 1, 1000, 0x3C000);  // Never complete.
    Writer(encoder, 10).write(3000, false);
    std::string expected = encoder.unpacked();
    increment(expected, 5, 100);
    increment(expected, middle, 50);
    increment(expected, middle, 50);
    RarDecompressor rar(nullptr);
    ASSERT_TRUE(same(unpack(rar, encoder.finish(), expected.size(), 29), expected));

    // The next solid entry knows the program, and what was unpacked is what matches refer to.
    encoder.takeEntry();
    addFilter(encoder, 1, 0, 16);
    encoder.match(static_cast<std::uint32_t>(expected.size()), 16);
    expected = encoder.unpacked().substr(expected.size());
    increment(expected, 0, 16);
    EXPECT_TRUE(same(unpack(rar, encoder.finish(), expected.size(), 29, kSolid), expected));
}

TEST(RarDecompressor, filteredBlocksMaySpanAFlushAndTheWindowsEnd) {
    RarEncoder encoder(29);
    constexpr std::uint32_t kBlock = 0x3C000;
    std::vector<std::size_t> blocks;
    Writer writer(encoder, 11);
    addFilter(encoder, 0, 0, 0, incrementProgram());
    while (encoder.unpacked().size() < 9U << 20) {
        blocks.push_back(encoder.unpacked().size());
        addFilter(encoder, 1, 0, kBlock);
        writer.write(kBlock + 1000, false);
    }
    std::string expected = encoder.unpacked();
    for (const std::size_t begin : blocks) increment(expected, begin, kBlock);
    EXPECT_TRUE(same(unpack(encoder.finish(), expected.size(), 29), expected));
}

TEST(RarDecompressor, ppmBlocksHaveFiltersMatchesAndRuns) {
    PpmEncoder encoder(4, 1);
    const auto command = [&encoder](const std::vector<unsigned char>& bytes) {
        encoder.put(PpmEncoder::kEscape);
        for (const unsigned char byte : bytes) encoder.put(byte);
    };
    std::vector<unsigned char> filter = filterOf(0, 7, 30, incrementProgram());
    const unsigned char head[] = {3, kFilterHead | 6, static_cast<unsigned char>(filter.size() - 7)};
    filter.insert(filter.begin(), std::begin(head), std::end(head));
    command(filter);
    std::string expected = words(100, 1);
    encoder.text(expected);
    command({4, 0, 0, 98, 255});  // 287 bytes from 100 before,
    command({5, 10});             // and the last one 14 times.
    command({77});                // No command: the escape character.
    for (int i = 0; i < 287; ++i) expected += expected[expected.size() - 100];
    expected += std::string(14, expected.back()) + "\x02";
    increment(expected, 7, 30);
    EXPECT_TRUE(same(unpack(encoder.finish(), expected.size(), 29), expected));
}

TEST(RarDecompressor, filtersThatMakeNoSenseEndTheEntryQuietly) {
    const auto program = incrementProgram();
    const std::pair<const char*, Bytes> rows[] = {
        {"no such program", filterOf(2, 0, 10)},
        {"beyond the window", filterOf(0, RarEncoder::kWindowBytes, 10, program)},
        {"far beyond it", filterOf(0, 0xFFFFFFFF, 10, program)},
        {"more than the machine holds", filterOf(0, 0, 0x3C001, program)},
        {"without its program", filterOf(0, 0, 10)},
    };
    for (const auto& [what, filter] : rows) {
        RarEncoder encoder(29);
        encoder.text("before");
        encoder.filter(kFilterHead, filter);
        encoder.text("behind");
        EXPECT_EQ(unpack(encoder.finish(), 12, 29), "before") << what;
    }
    // On one block, and on blocks to come.
    const std::pair<std::size_t, std::uint32_t> bounds[] = {{RarVMOutputStream::kMostOnOneBlock, 0},
                                                            {RarVMOutputStream::kMostPending, 10}};
    for (const auto& [most, step] : bounds) {
        for (const std::size_t count : {most, most + 1}) {
            RarEncoder encoder(29);
            for (std::uint32_t i = 0; i < count; ++i) addFilter(encoder, i > 0, i * step, 3, i ? Bytes{} : program);
            encoder.text(std::string(10 * count, 'x'));
            EXPECT_EQ(unpack(encoder.finish(), 10 * count, 29).size(), count == most ? 10 * count : 0) << count;
        }
    }
}

// Else a few bytes of input, again and again, buy time without end.
TEST(RarDecompressor, chargesWorkThatNobodyGetsAnythingFrom) {
    constexpr std::int64_t kStart = 4 << 10, kModel = (32 << 10) + kStart;  // What a model costs by itself.
    constexpr std::int64_t kSymbols = 1000, kCost = ScanBudget::kBytesPerPpmSymbol;
    RarEncoder swallowed(29);
    addFilter(swallowed, 0, 0, 1000, RarVmAssembler().mov(at(0x3C01C), imm(0)).build());
    swallowed.text(std::string(1000, 'x') + "y");
    const std::string nothing = swallowed.finish();
    // The second model comes behind the last byte, where errors count for nothing else.
    PpmEncoder models(4, 1), symbols(4, 1);
    models.put('y');
    models.nextBlock(true);
    const std::string twoModels = models.finish();
    symbols.text(std::string(kSymbols, 'a'));
    const std::string manySymbols = symbols.finish();
    const struct {
        const char* what;
        std::string packed;
        std::size_t size;
        bool isWanted;
        std::int64_t left;  // Bytes that may be dropped.
        std::string thrown;
        std::int64_t leftToTake = ScanBudget::kTakenBytes;
    } rows[] = {
        {"a filter", nothing, 1, true, 1000, "<nothing>"},
        {"a filter, one less", nothing, 1, true, 999, "Out of budget"},
        {"models", twoModels, 1, true, kModel + kStart, "<nothing>"},
        {"models, one less", twoModels, 1, true, kModel + kStart - 1, "Out of budget"},
        {"symbols", manySymbols, kSymbols, true, kModel, "<nothing>", kCost * (kSymbols + 1)},
        {"symbols, less", manySymbols, kSymbols, true, kModel, "Out of budget", kCost * (kSymbols - 10)},
        {"symbols for nobody", manySymbols, kSymbols, false, kModel + kCost * (kSymbols + 1), "<nothing>", 0},
        {"symbols for nobody, less", manySymbols, kSymbols, false, kModel + kCost * (kSymbols - 10), "Out of budget"},
        {"bytes that are taken", RarEncoder::literals(29, "hello"), 5, true, 0, "<nothing>", 5},
        {"bytes that are taken, less", RarEncoder::literals(29, "hello"), 5, true, 0, "Out of budget", 4},
    };
    for (const auto& row : rows) {
        ScanBudget budget;
        const ScanBudget::Scope scope(budget);
        ScanBudget::chargeDiscardedBytes(ScanBudget::kDiscardedBytes - row.left);
        ScanBudget::chargeTakenBytes(ScanBudget::kTakenBytes - row.leftToTake);
        NullOutputStream nobody;
        StringOutputStream wanted;
        OutputStream& out = row.isWanted ? static_cast<OutputStream&>(wanted) : nobody;
        RarDecompressor rar(nullptr);
        EXPECT_EQ(thrownBy<OutOfBudgetException>([&] { unpackTo(out, rar, row.packed, row.size, 29); }), row.thrown)
            << row.what;
    }
}

TEST(RarDecompressor, stopsAtTheLimit) {
    for (const int version : {20, 29}) {
        const std::string packed = RarEncoder::literals(version, "0123456789");
        EXPECT_EQ(unpack(packed, 5, version) + unpack(packed, 0, version), "01234");
        EXPECT_TRUE(version == 20 || unpack(packed, 100, version) == "0123456789");
    }
}

// What comes before the failure is not lost.
TEST(RarDecompressor, writesWhatItHasWhenTheDataFails) {
    const std::string text = words(9000, 5);
    PpmEncoder ppm(4, 1);
    ppm.text(text);
    const std::string packedPpm = ppm.finish(), packed20 = RarEncoder::literals(20, text),
                      packed29 = RarEncoder::literals(29, text);
    const struct {
        int version;
        std::string packed;
        std::size_t packedBytes, size, least;  // Announced ones, and what must come out.
        std::string thrown;
    } rows[] = {{20, packed20.substr(0, 500), packed20.size(), text.size(), 300, "Unexpected EOF"},
                {29, packed29.substr(0, 500), packed29.size(), text.size(), 300, "Unexpected EOF"},
                {29, packed29.substr(0, 8300), packed29.size(), text.size(), 8000, "Unexcepted EOF"},
                {29, packedPpm.substr(0, 500), packedPpm.size(), text.size(), 600, "Unexpected EOF"},
                {29, packedPpm.substr(0, 500), 500, text.size(), 600, "RarStream overflow."}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.thrown);
        StringSource source(row.packed);
        StringOutputStream out;
        RarDecompressor rar(nullptr);
        EXPECT_EQ(thrownBy([&] {
                      rar.decompress(source.stream, static_cast<std::int64_t>(row.packedBytes), out,
                                     static_cast<std::int64_t>(row.size), row.version, 0);
                  }),
                  row.thrown);
        // The bits behind the last byte count as zeros, and may make a last symbol.
        const std::string got = out.getString();
        EXPECT_GE(got.size(), row.least);
        EXPECT_TRUE(same(got.substr(0, got.size() - 2), text.substr(0, got.size() - 2)));
    }
    for (const int version : {20, 29}) {
        RarEncoder tooLong(version);
        tooLong.text("0123456789");
        tooLong.match(10, 10);
        const std::string packed = tooLong.finish();
        StringOutputStream out;
        RarDecompressor rar(nullptr);
        EXPECT_EQ(thrownBy([&] { unpackTo(out, rar, packed, 15, version); }), "Rar output buffer overrun");
        EXPECT_EQ(out.getString(), "012345678901234");
    }
    PpmEncoder tooFar(4, 1);
    tooFar.text("before");
    for (const int byte : {PpmEncoder::kEscape, 4, 255, 255, 255, 1}) tooFar.put(static_cast<unsigned char>(byte));
    StringOutputStream out;
    RarDecompressor rar(nullptr);
    EXPECT_EQ(thrownBy([&] { unpackTo(out, rar, tooFar.finish(), 100, 29); }), "copyContent() overflow");
    EXPECT_EQ(out.getString(), "before");
}

// The checksums are of what came out when the decoder was proven on real archives with sound.
TEST(RarDecompressor, restoresSound) {
    const std::uint32_t expected[] = {0xF077271D, 0x5F7DE190, 0x3F582387, 0xADBB4058};
    for (unsigned channels = 1; channels <= 4; ++channels) {
        constexpr unsigned kCount = 20000;
        const std::string packed = soundOf(channels, kCount);
        const std::string sound = unpack(packed, kCount, 20);
        EXPECT_EQ(Iso3309Crc().add(sound.data(), kCount), expected[channels - 1]) << channels;
    }
}

// Programs see where their blocks lie, how often they ran before and what the filter's description gave them.
TEST(RarDecompressor, filtersLieWhereTheirDescriptionsSay) {
    RarVmAssembler program;
    program.mov(at(0), reg(6)).mov(at(4), at(0x3C024)).mov(at(8), reg(5)).mov(at(12), reg(0));
    const Bytes code = program.dword(VmOperation::ret).build();
    const auto numbers = [](std::initializer_list<std::uint32_t> values) {
        RarBitWriter bits;
        for (const std::uint32_t value : values) bits.putNumber(value);
        return bits;
    };
    RarDecompressor rar(nullptr);
    RarEncoder encoder(29);
    for (const int solid : {0, kSolid}) {
        std::string expected(2000, 'x');
        const auto expect = [&expected](std::size_t at, std::uint32_t uses, std::uint32_t first) {
            std::string words;
            const auto position = static_cast<std::uint32_t>(at);
            for (const std::uint32_t word : {position, position, uses, first}) words += RarBuilder::number(word, 4);
            expected.replace(at, 16, words);
        };
        encoder.text(std::string(100, 'x'));
        encoder.filter(0xA0, solid ? filterOf(1, 30, 16) : filterOf(0, 30, 16, code));
        expect(130, solid ? 3 : 0, 0);
        encoder.filter(0xC0, numbers({1, 40}).bytes());  // From 258 on, as long as the one before.
        expect(100 + 258 + 40, solid ? 4 : 1, 0);
        encoder.text(std::string(900, 'x'));
        RarBitWriter registers = numbers({50});  // The last program, with R0.
        registers.put(1, 7), registers.putNumber(77);
        encoder.filter(0x10, registers.bytes());
        expect(1050, solid ? 5 : 2, 77);
        encoder.text(std::string(1000, 'x'));
        EXPECT_TRUE(same(unpack(rar, encoder.finish(), 2000, 29, solid), expected));
    }
}

TEST(RarDecompressor, theProcessorEndsEntriesThatAreNotSolid) {
    for (const int version : {20, 29}) {
        RarEncoder encoder(version);
        encoder.text("0123456789");
        const std::string packed = encoder.finish();
        StopAfter late(10), early(9);
        RarDecompressor whole(&late), cut(&early);
        EXPECT_EQ(unpack(whole, packed, 10, version), "0123456789");
        EXPECT_EQ(unpack(cut, packed, 10, version), "");
        encoder.text("abc");
        EXPECT_EQ(unpack(whole, encoder.finish(), 3, version, kSolid), "abc");
    }
}

}  // namespace
}  // namespace ZOV_SPACE
