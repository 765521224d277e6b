#include "utils/RarStream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "io/BufferBaseStreams.h"
#include "io/MemBufferBase.h"
#include "support/Thrown.h"

namespace ZOV_SPACE {
namespace {

struct Source {
    explicit Source(std::string_view bytes) { buffer.append(bytes.data(), static_cast<int>(bytes.size())); }

    MemBufferBase buffer;
    BufferBaseInputStream stream{&buffer};
};

std::string randomBytes(std::size_t size, unsigned seed) {
    std::minstd_rand random(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random() >> 8);
    return bytes;
}

unsigned bitsAt(const std::string& bytes, std::size_t bit) {
    unsigned value = 0;
    for (std::size_t i = 0; i < 3; ++i) {
        const std::size_t at = bit / 8 + i;
        value = value << 8 | (at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0U);
    }
    return value >> (8 - bit % 8) & 0xFFFF;
}

TEST(RarBitInputStream, givesEveryBitOnceWhateverTheSteps) {
    for (const std::size_t size : {1U, 2U, 3U, 8191U, 8192U, 8193U, 8200U, 20000U}) {
        const std::string bytes = randomBytes(size, 1);
        for (const int step : {1, 7, 8, 13, 16}) {
            SCOPED_TRACE(testing::Message() << size << " bytes in steps of " << step);
            Source source(bytes + "behind the end");
            RarBitInputStream in(&source.stream, static_cast<std::int64_t>(size));
            std::size_t bit = 0;
            for (; bit < 8 * size; bit += static_cast<std::size_t>(step)) {
                ASSERT_FALSE(in.atEnd());
                ASSERT_EQ(in.getBits(), bitsAt(bytes, bit)) << "bit " << bit;
                ASSERT_EQ(in.addBits(step), 0);
            }
            EXPECT_TRUE(in.atEnd());
            EXPECT_EQ(thrownBy([&] { in.getBits(); }), "RarStream overflow.");
        }
        Source source(bytes);
        RarBitInputStream in(&source.stream, static_cast<std::int64_t>(size));
        for (const char byte : bytes) ASSERT_EQ(in.nextByte(), static_cast<unsigned char>(byte));
        EXPECT_EQ(thrownBy([&] { in.nextByte(); }), "RarStream overflow.");
    }
}

TEST(RarBitInputStream, refusesStepsThatAreNone) {
    Source source("\x12\x34\x56");
    RarBitInputStream in(&source.stream, 3);
    EXPECT_EQ(in.addBits(17), 1);
    EXPECT_EQ(in.addBits(-1), 1);
    EXPECT_EQ(in.getBits(), 0x1234U);
    in.addBits(3);
    in.alignToByte();
    in.alignToByte();
    EXPECT_EQ(in.getBits(), 0x3456U);
    // Steps without a look may lead behind the buffer, and behind the end.
    const std::string bytes = randomBytes(30000, 2);
    Source longer(bytes);
    RarBitInputStream far(&longer.stream, 30000);
    for (int i = 0; i < 10000; ++i) far.addBits(16);
    EXPECT_EQ(far.getBits(), bitsAt(bytes, 160000));
    for (int i = 0; i < 10000; ++i) far.addBits(16);
    EXPECT_EQ(thrownBy([&] { far.getBits(); }), "RarStream overflow.");
}

TEST(RarBitInputStream, saysWhereItsSourceEnded) {
    const auto read = [](std::size_t size, std::int64_t total) {
        Source source(randomBytes(size, 3));
        RarBitInputStream in(&source.stream, total);
        while (!in.atEnd()) in.nextByte();
    };
    EXPECT_EQ(thrownBy([&] { read(99, 100); }), "Unexpected EOF");
    EXPECT_EQ(thrownBy([&] { read(8191, 9000); }), "Unexpected EOF");
    EXPECT_EQ(thrownBy([&] { read(8192, 9000); }), "Unexcepted EOF");
    EXPECT_EQ(thrownBy([&] { read(20000, std::int64_t{1} << 40); }), "Unexcepted EOF");
    EXPECT_EQ(thrownBy([&] { read(20000, 20000); }), "<nothing>");
    EXPECT_EQ(unitThrownBy([&] { read(1, 2); }), "../../core/pakfold/src/utils/RarStream");
    Source empty("");
    RarBitInputStream in(&empty.stream, 0);
    EXPECT_EQ(thrownBy([&] { in.getBits(); }), "RarStream overflow.");
}

// The window as a plain ring, byte by byte.
struct ModelWindow {
    explicit ModelWindow(std::size_t size) : ring(size, '\0') {}

    void put(char byte) {
        ring[position] = byte;
        position = (position + 1) % ring.size();
        out += byte;
    }
    void copy(std::size_t distance, std::size_t length) {
        std::size_t from = (position + ring.size() - distance) % ring.size();
        for (; length > 0; --length, from = (from + 1) % ring.size()) put(ring[from]);
    }

    std::string ring;
    std::size_t position = 0;
    std::string out;
};

TEST(RarBufferOutputStream, writesWhatAPlainRingWould) {
    std::minstd_rand numbers(4);
    const auto random = [&] { return static_cast<std::uint32_t>(numbers()); };
    for (const std::uint32_t size : {270U, 271U, 600U, 4096U, 70000U}) {
        SCOPED_TRACE(size);
        ModelWindow model(size);
        StringOutputStream target;
        RarBufferOutputStream out(&target, size, 1 << 30, nullptr);
        for (int i = 0; i < 3000; ++i) {
            if (random() % 3 == 0) {
                const auto byte = static_cast<char>(random());
                model.put(byte);
                out.putch(byte);
            } else {
                const std::uint32_t near = random() % 2 ? 20U : size;
                std::uint32_t distance = std::min<std::uint32_t>(random() % (near + 1), size);
                if (random() % 8 == 0) distance = size - std::min(size, distance);
                const std::uint32_t length = random() % 16 == 0 ? random() % 600 : random() % 40;
                model.copy(distance, length);
                out.copyContent(distance, length);
            }
            if (random() % 100 == 0) out.flashOutput(static_cast<int>(random() % 50));
            ASSERT_EQ(out.writeCount(), static_cast<std::int64_t>(model.out.size()));
        }
        out.finishOutput();
        ASSERT_EQ(target.getString(), model.out);
    }
}

TEST(RarBufferOutputStream, refusesDistancesBeyondTheWindowAndOutputBeyondTheLimit) {
    StringOutputStream target;
    RarBufferOutputStream out(&target, 4096, 10, nullptr);
    out.putch('x');
    out.copyContent(1, 5);
    EXPECT_EQ(thrownBy([&] { out.copyContent(4097, 1); }), "copyContent() overflow");
    EXPECT_EQ(thrownBy([&] { out.copyContent(0xFFFFFFFF, 1); }), "copyContent() overflow");
    out.flashOutput(4);
    EXPECT_EQ(target.getString(), "xxxx");
    for (int i = 0; i < 5; ++i) out.putch('y');
    EXPECT_TRUE(out.limitReached());
    EXPECT_EQ(thrownBy([&] { out.flashOutput(); }), "Rar output buffer overrun");
    EXPECT_EQ(thrownBy([&] { out.flashOutput(7); }), "Rar output buffer overrun");
    EXPECT_EQ(target.getString(), "xxxx");
    out.flashOutput(6);
    EXPECT_EQ(target.getString(), "xxxxxxyyyy");
}

TEST(RarBufferOutputStream, handsItsWindowOn) {
    StringOutputStream target;
    RarBufferOutputStream first(&target, 1000, 100, nullptr);
    for (const char byte : std::string("abc")) first.putch(byte);
    RarVMOutputStream second(&target, 1000, 100, &first);
    second.copyContent(3, 3);
    second.finishOutput();
    EXPECT_EQ(target.getString(), "abc");  // The second's; what the first had not flushed is gone.
    RarWindow window = second.releaseWindow();
    window.clear();
    RarBufferOutputStream third(&target, std::move(window), 10);
    third.copyContent(6, 3);
    third.finishOutput();
    EXPECT_EQ(target.getString(), std::string("abc\0\0\0", 6));
}

// Writes "<block>", `extra` shorter or longer, and passes it on like a real one.
class FakeFilter : public RarOutputFilter {
public:
    FakeFilter(std::uint32_t start, std::uint32_t length) : _start(start), _length(length) {}

    std::uint32_t getStart() const override { return _start; }
    std::uint32_t getLength() const override { return _length; }
    std::uint32_t copy(const unsigned char* bytes, std::uint32_t n) override {
        n = std::min(n, _length - static_cast<std::uint32_t>(_block.size()));
        _block.append(reinterpret_cast<const char*>(bytes), n);
        return static_cast<std::uint32_t>(_block.size());
    }
    bool ready() const override { return _block.size() >= _length; }
    void execute(RarVMOutputStream* out, RarFilterQueue*) override {
        const std::string result = "<" + _block + ">";
        out->writeFiltered(reinterpret_cast<const unsigned char*>(result.data()),
                           static_cast<std::uint32_t>(result.size()));
    }

private:
    std::uint32_t _start, _length;
    std::string _block;
};

TEST(RarVMOutputStream, flushesPlainBytesUpToBlocksAndBlocksWhenComplete) {
    struct Row {
        std::vector<std::pair<std::uint32_t, std::uint32_t>> blocks;  // Start and length, as registered.
        std::string flushed;                                          // Of "0123456789",
        std::string finished;                                         // and in the end.
    };
    const Row rows[] = {
        {{}, "0123456789", "0123456789"},
        {{{2, 3}}, "01<234>56789", "01<234>56789"},
        {{{5, 2}, {0, 2}}, "<01>234<56>789", "<01>234<56>789"},
        {{{0, 10}}, "<0123456789>", "<0123456789>"},
        {{{8, 3}}, "01234567", "0123456789"},                // Incomplete.
        {{{8, 3}, {2, 1}}, "01<2>34567", "01<2>3456789"},    // Behind the first, ahead of the other.
        {{{2, 4}, {3, 1}}, "01<2345>6789", "01<2345>6789"},  // Overlapping: too late.
        {{{2, 4}, {2, 1}}, "01<2345>6789", "01<2345>6789"},
        {{{2, 0}, {4, 1}}, "0123<4>56789", "0123<4>56789"},
        {{{10, 1}}, "0123456789", "0123456789"},  // Still to come.
    };
    for (const Row& row : rows) {
        for (const std::uint32_t begin : {0U, 996U}) {  // Also across the window's end.
            SCOPED_TRACE(testing::Message() << &row - rows << " at " << begin);
            StringOutputStream before, target;
            RarBufferOutputStream previous(&before, 1000, 2000, nullptr);
            for (std::uint32_t i = 0; i < begin; ++i) previous.putch('.');
            RarVMOutputStream out(&target, 1000, 100, &previous);
            for (const auto& [start, length] : row.blocks) {
                EXPECT_TRUE(out.registerFilter(std::make_unique<FakeFilter>((begin + start) % 1000, length)));
            }
            for (const char byte : std::string("0123456789")) out.putch(byte);
            out.flashOutput();
            EXPECT_EQ(target.getString(), row.flushed);
            out.finishOutput();
            EXPECT_EQ(target.getString(), row.finished);
        }
    }
}

TEST(RarVMOutputStream, boundsItsQueueAndItsBlocks) {
    StringOutputStream target;
    RarVMOutputStream out(&target, 100000, 12, nullptr);
    EXPECT_FALSE(out.registerFilter(std::make_unique<FakeFilter>(0, 99999)));
    const auto add = [&](std::size_t start) {
        return out.registerFilter(std::make_unique<FakeFilter>(static_cast<std::uint32_t>(start), 11));
    };
    for (std::size_t i = 0; i < RarVMOutputStream::kMostOnOneBlock; ++i) EXPECT_TRUE(add(0));
    EXPECT_FALSE(add(0));
    for (std::size_t i = RarVMOutputStream::kMostOnOneBlock; i < RarVMOutputStream::kMostPending; ++i) {
        EXPECT_TRUE(add(100 + i));
    }
    EXPECT_FALSE(add(50000));
    for (int i = 0; i < 12; ++i) out.putch('x');
    EXPECT_EQ(thrownBy([&] { out.flashOutput(); }), "Rar output buffer overrun");  // 13 bytes come of 11.
    EXPECT_EQ(target.getString(), "");
}

}  // namespace
}  // namespace ZOV_SPACE
