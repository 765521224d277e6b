#include "unarchiver/RarCompressor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <string_view>

#include "io/BufferBaseStreams.h"
#include "io/MemBufferBase.h"
#include "support/PpmEncoder.h"
#include "support/RarEncoder.h"
#include "support/Thrown.h"
#include "unarchiver/EntryStreams.h"
#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {
namespace {

constexpr int kSolid = 0x10;

// Unpacks the next entry of the decompressor's archive.
std::string unpack(RarDecompressor& rar, std::string_view packed, std::size_t size, int version, int solid = 0) {
    MemBufferBase buffer;
    buffer.append(packed.data(), static_cast<int>(packed.size()));
    BufferBaseInputStream in(&buffer);
    StringOutputStream out;
    rar.decompress(in, static_cast<std::int64_t>(packed.size()), out, static_cast<std::int64_t>(size), version, solid);
    EXPECT_EQ(in.available(), 0) << "Packed bytes were left.";
    return out.getString();
}

std::string unpack(std::string_view packed, std::size_t size, int version) {
    RarDecompressor rar(nullptr);
    return unpack(rar, packed, size, version);
}

// Strings as long as whole windows make no useful message.
testing::AssertionResult same(const std::string& a, const std::string& b) {
    if (a == b) return testing::AssertionSuccess();
    const auto at =
        std::mismatch(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(std::min(a.size(), b.size())), b.begin());
    return testing::AssertionFailure() << "sizes " << a.size() << " and " << b.size() << ", first difference at "
                                       << at.first - a.begin();
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
    MemBufferBase buffer;
    BufferBaseInputStream in(&buffer);
    EXPECT_EQ(thrownBy<CompressionException>([&] { rar.decompress(in, out); }),
              "RarDecompressor::decompress() is not implemented");
    for (const int version : {15, 36, 0, 21, -1}) {
        EXPECT_EQ(thrownBy<CompressionException>([&] { unpack(rar, "x", 1, version); }),
                  "Unsupported RAR unpack version:" + std::to_string(version));
    }
    EXPECT_EQ(rar.getAlorithm(), kAlgorithmRar);
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

TEST(RarDecompressor, solidEntriesContinueThePpmModel) {
    PpmEncoder encoder(6, 1);
    RarDecompressor rar(nullptr);
    for (int entry = 0; entry < 5; ++entry) {
        const std::string text = words(3000, static_cast<unsigned>(entry));
        if (entry > 0) encoder.nextEntry();
        encoder.text(text.substr(0, 1000));
        if (entry == 2) encoder.nextBlock();
        encoder.text(text.substr(1000));
        ASSERT_TRUE(same(unpack(rar, encoder.finish(), text.size(), 29, entry == 0 ? 0 : kSolid), text)) << entry;
    }
}

TEST(RarDecompressor, ppmSymbolsThatNobodyGetsCostMore) {
    constexpr std::int64_t kCost = ScanBudget::kBytesPerPpmSymbol, kSymbols = 1000;
    constexpr std::int64_t kModel = (1 << 20) + (1 << 14);  // What the model costs before its first symbol.
    PpmEncoder encoder(4, 1);
    encoder.text(std::string(kSymbols, 'a'));
    const std::string packed = encoder.finish();
    const auto decode = [&](std::int64_t left, OutputStream&& out) {
        ScanBudget budget;
        const ScanBudget::Scope spending(budget);
        ScanBudget::chargeDiscardedBytes(ScanBudget::kDiscardedBytes - left);
        MemBufferBase buffer;
        buffer.append(packed.data(), static_cast<int>(packed.size()));
        BufferBaseInputStream in(&buffer);
        return thrownBy<OutOfBudgetException>(
            [&] { RarDecompressor(nullptr).decompress(in, static_cast<int>(packed.size()), out, kSymbols, 29, 0); });
    };
    EXPECT_EQ(decode(kModel + kCost * (kSymbols + 1), NullOutputStream()), "<nothing>");
    EXPECT_EQ(decode(kModel + kCost * (kSymbols - 10), NullOutputStream()), "Out of budget");
    EXPECT_EQ(decode(kModel, StringOutputStream()), "<nothing>");
}

TEST(RarDecompressor, ppmBlocksHaveMatchesAndRuns) {
    PpmEncoder encoder(4, 1);
    const std::string text = words(100, 1);
    const auto command = [&](std::initializer_list<int> bytes) {
        encoder.put(PpmEncoder::kEscape);
        for (const int byte : bytes) encoder.put(static_cast<unsigned char>(byte));
    };
    encoder.text(text);
    command({4, 0, 0, 98, 255});  // 287 bytes from 100 before,
    command({5, 10});             // and the last one 14 times.
    command({77});                // No command: the escape character.
    std::string expected = text;
    for (int i = 0; i < 287; ++i) expected += expected[expected.size() - 100];
    expected += std::string(14, expected.back()) + "\x02";
    EXPECT_TRUE(same(unpack(encoder.finish(), expected.size(), 29), expected));

    PpmEncoder tooFar(4, 1);
    tooFar.put(PpmEncoder::kEscape);
    for (const int byte : {4, 255, 255, 255, 1}) tooFar.put(static_cast<unsigned char>(byte));
    EXPECT_EQ(thrownBy([&] { unpack(tooFar.finish(), 100, 29); }), "copyContent() overflow");
}

// Adds 1 to each byte of the block (its length is in R4), in place.
std::vector<unsigned char> incrementProgram() {
    using enum VmOperation;
    RarVmAssembler program;
    program.dword(mov, reg(0), imm(0));
    const std::uint32_t loop = program.next();
    program.byte(inc, at(reg(0))).dword(inc, reg(0)).dword(cmp, reg(0), reg(4)).jump(jb, loop).dword(ret);
    return program.build();
}

constexpr unsigned kNumber = 0x80, kLength = 0x20;  // What a filter's description has.

// Which program (0: all anew), where the block begins ahead, and its length; the program when it is new.
void addFilter(RarEncoder& encoder, std::uint32_t number, std::uint32_t ahead, std::uint32_t length,
               const std::vector<unsigned char>& program = {}) {
    RarBitWriter bits;
    bits.putNumber(number);
    bits.putNumber(ahead);
    bits.putNumber(length);
    if (!program.empty()) {
        bits.putNumber(static_cast<std::uint32_t>(program.size()));
        for (const unsigned char byte : program) bits.put(byte, 8);
    }
    encoder.filter(kNumber | kLength, bits.bytes());
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

TEST(RarDecompressor, filtersComeInPpmBlocks) {
    PpmEncoder encoder(5, 1);
    std::string text = words(200, 5);
    const std::vector<unsigned char> program = incrementProgram();
    RarBitWriter bits;
    for (const std::uint32_t number : {0U, 7U, 30U, static_cast<std::uint32_t>(program.size())}) bits.putNumber(number);
    for (const unsigned char byte : program) bits.put(byte, 8);
    encoder.put(PpmEncoder::kEscape);
    for (const unsigned head : {3U, kNumber | kLength | 6U, static_cast<unsigned>(bits.bytes().size()) - 7}) {
        encoder.put(static_cast<unsigned char>(head));
    }
    for (const unsigned char byte : bits.bytes()) encoder.put(byte);
    encoder.text(text);
    increment(text, 7, 30);
    EXPECT_TRUE(same(unpack(encoder.finish(), text.size(), 29), text));
}

TEST(RarDecompressor, filtersThatMakeNoSenseEndTheEntryQuietly) {
    const auto program = incrementProgram();
    struct Row {
        std::uint32_t number, ahead, length;
        std::vector<unsigned char> program;
    };
    const Row rows[] = {
        {2, 0, 10, {}},                              // No such program.
        {0, RarEncoder::kWindowBytes, 10, program},  // Beyond the window.
        {0, 0xFFFFFFFF, 10, program},
        {0, 0, 0x3C001, program},  // More than the machine holds.
        {0, 0, 10, {}},            // Without its program.
    };
    for (const Row& row : rows) {
        RarEncoder encoder(29);
        encoder.text("before");
        addFilter(encoder, row.number, row.ahead, row.length, row.program);
        encoder.text("behind");
        EXPECT_EQ(unpack(encoder.finish(), 12, 29), "before") << &row - rows;
    }
    RarEncoder chain(29);
    addFilter(chain, 0, 0, 3, program);
    for (std::size_t i = 1; i <= RarVMOutputStream::kMostOnOneBlock; ++i) addFilter(chain, 1, 0, 3);
    chain.text("behind");
    EXPECT_EQ(unpack(chain.finish(), 6, 29), "");
}

// Else a few bytes of input, again and again, buy time without end.
TEST(RarDecompressor, chargesWorkWithoutOutput) {
    RarEncoder swallowed(29);
    addFilter(swallowed, 0, 0, 1000, RarVmAssembler().dword(VmOperation::mov, at(0x3C01C), imm(0)).build());
    swallowed.text(std::string(1000, 'x') + "y");
    // The second model comes behind the last byte, where errors count for nothing else.
    PpmEncoder models(4, 1);
    models.put('y');
    models.nextBlock(true);
    const struct {
        std::string packed;
        std::int64_t cost;
    } rows[] = {{swallowed.finish(), 1000}, {models.finish(), (1 << 20) + 2 * (16 << 10)}};
    for (const auto& [packed, cost] : rows) {
        for (const bool enough : {true, false}) {
            ScanBudget budget;
            const ScanBudget::Scope scope(budget);
            ScanBudget::chargeDiscardedBytes(ScanBudget::kDiscardedBytes - cost + (enough ? 0 : 1));
            const auto unpackIt = [&packed = packed] { EXPECT_EQ(unpack(packed, 1, 29), "y"); };
            if (enough) {
                unpackIt();
            } else {
                EXPECT_EQ(thrownBy<OutOfBudgetException>(unpackIt), "Out of budget");
            }
        }
    }
}

TEST(RarDecompressor, stopsAtTheLimitOrSaysThatItIsCrossed) {
    for (const int version : {20, 29}) {
        RarEncoder encoder(version);
        encoder.text("0123456789");
        encoder.match(10, 10);
        const std::string packed = encoder.finish();
        EXPECT_EQ(unpack(packed, 5, version), "01234");
        EXPECT_EQ(thrownBy([&] { unpack(packed, 15, version); }), "Rar output buffer overrun");
        if (version == 29) {
            EXPECT_EQ(unpack(packed, 100, version), encoder.unpacked());
        }
        EXPECT_EQ(unpack(packed, 0, version), "");
    }
}

class Stopper : public DecompressProcessor {
public:
    explicit Stopper(int symbols) : _left(symbols) {}
    int init() override { return 0; }
    int setFileName(std::string&) override { return 0; }
    int setContentType(std::string&) override { return 0; }
    int check(InputStream*) override { return 0; }
    int check(BufferBase*) override { return 0; }
    int requiredLength() override { return 0; }
    int getAction() override { return _left-- > 0 ? 1 : kStop; }

private:
    int _left;
};

TEST(RarDecompressor, theProcessorEndsEntriesThatAreNotSolid) {
    for (const int version : {20, 29}) {
        RarEncoder encoder(version);
        encoder.text("0123456789");
        const std::string packed = encoder.finish();
        Stopper late(10), early(9);
        RarDecompressor whole(&late), cut(&early);
        EXPECT_EQ(unpack(whole, packed, 10, version), "0123456789");
        EXPECT_EQ(unpack(cut, packed, 10, version), "");
        encoder.takeEntry();
        encoder.text("abc");
        EXPECT_EQ(unpack(whole, encoder.finish(), 3, version, kSolid), "abc");
    }
}

// Whatever the data, entries end in bounded time with the texts that belong to them.
TEST(RarDecompressor, survivesDamage) {
    std::vector<std::pair<int, std::string>> seeds;
    for (const int version : {20, 29}) {
        RarEncoder encoder(version);
        if (version == 29) addFilter(encoder, 0, 5, 100, incrementProgram());
        Writer writer(encoder, 12);
        writer.write(400, version == 20);
        encoder.nextBlock();
        writer.write(400, version == 20);
        seeds.emplace_back(version, encoder.finish());
    }
    PpmEncoder ppm(6, 1);
    ppm.text(words(100, 3));
    ppm.nextBlock();
    ppm.text(words(50, 4));
    seeds.emplace_back(29, ppm.finish());
    seeds.emplace_back(20, "\xC0");

    const auto isKnown = [](const std::string& text) {
        return text == "RarStream overflow." || text == "copyContent() overflow" || text == "Rar output buffer overrun";
    };
    std::mt19937 random(13);
    for (const auto& [version, packed] : seeds) {
        RarDecompressor rar(nullptr);
        for (int round = 0; round < 1500; ++round) {
            std::string damaged = packed;
            if (round % 3 == 0) damaged.resize(static_cast<std::size_t>(round / 3) % (packed.size() + 1));
            if (round % 3 == 1) damaged.resize(random() % 300);
            for (unsigned flips = round % 3 == 2 ? 1 + random() % 4 : 0; flips > 0; --flips) {
                damaged[random() % damaged.size()] ^= static_cast<char>(1U << random() % 8);
            }
            if (round % 3 == 1)
                std::generate(damaged.begin(), damaged.end(), [&] { return static_cast<char>(random()); });
            if (round % 7 == 0 && !damaged.empty()) damaged[0] = static_cast<char>(damaged[0] | 0x80);  // Audio or PPM.
            StringOutputStream out;
            MemBufferBase buffer;
            buffer.append(damaged.data(), static_cast<int>(damaged.size()));
            BufferBaseInputStream in(&buffer);
            const std::string thrown = thrownBy([&] {
                rar.decompress(in, static_cast<std::int64_t>(damaged.size()), out, 1 << 16, version,
                               round % 5 == 0 ? 0 : kSolid);
            });
            ASSERT_TRUE(thrown == "<nothing>" || isKnown(thrown)) << thrown;
            ASSERT_LE(out.getString().size(), 1U << 16);
        }
    }
}

}  // namespace
}  // namespace ZOV_SPACE
