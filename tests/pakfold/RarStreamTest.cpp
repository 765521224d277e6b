#include <gtest/gtest.h>

#include <string>

#include "rar/RarBitInputStream.h"
#include "rar/RarBufferOutputStream.h"
#include "support/StringBuffer.h"
#include "support/Thrown.h"
#include "unused/OutputStreams.h"

namespace ZOV_SPACE {
namespace {

// Steps without a look may lead behind the buffer, and behind the end.
TEST(RarBitInputStream, refusesStepsThatAreNone) {
    StringSource source(std::string(20000, 'x') + "ab" + std::string(9998, 'x'));
    RarBitInputStream in(&source.stream, 30000);
    EXPECT_TRUE(in.addBits(17) == 1 && in.addBits(-1) == 1);
    for (int i = 0; i < 10000; ++i) in.addBits(16);
    EXPECT_EQ(in.getBits(), 0x6162U);
    in.addBits(3);
    in.alignToByte();
    in.alignToByte();
    EXPECT_EQ(in.getBits(), 0x6278U);
    for (int i = 0; i < 10000; ++i) in.addBits(16);
    EXPECT_EQ(thrownBy([&] { in.getBits(); }), "RarStream overflow.");
}

TEST(RarBitInputStream, saysWhereItsSourceEnded) {
    const struct {
        std::size_t size;
        std::int64_t total;
        std::string thrown;
    } rows[] = {{99, 100, "Unexpected EOF"},           {8191, 9000, "Unexpected EOF"},
                {8192, 9000, "Unexcepted EOF"},        {20000, std::int64_t{1} << 40, "Unexcepted EOF"},
                {20000, 20000, "RarStream overflow."}, {0, 0, "RarStream overflow."}};
    for (const auto& row : rows) {
        const auto read = [&row] {
            StringSource source(std::string(row.size, 'x'));
            for (RarBitInputStream in(&source.stream, row.total);;) in.nextByte();
        };
        EXPECT_EQ(thrownBy(read), row.thrown) << row.size << " of " << row.total;
        EXPECT_EQ(unitThrownBy(read), "../../core/pakfold/src/utils/RarStream");
    }
}

TEST(RarBufferOutputStream, refusesDistancesBeyondTheWindowAndOutputBeyondTheLimit) {
    StringOutputStream target;
    RarBufferOutputStream out(&target, 4096, 10, nullptr);
    out.putch('x');
    out.copyContent(1, 5);
    for (const unsigned distance : {4097U, 0xFFFFFFFFU}) {
        EXPECT_EQ(thrownBy([&] { out.copyContent(distance, 1); }), "copyContent() overflow");
    }
    out.flashOutput(4);
    for (int i = 0; i < 5; ++i) out.putch('y');
    EXPECT_TRUE(out.limitReached());
    EXPECT_EQ(target.getString(), "xxxx");
    EXPECT_FALSE(out.outputFailed());
    EXPECT_EQ(thrownBy([&] { out.flashOutput(); }), "Rar output buffer overrun");
    EXPECT_EQ(target.getString(), "xxxxxxyyyy");
    EXPECT_TRUE(out.outputFailed());
}

}  // namespace
}  // namespace ZOV_SPACE
