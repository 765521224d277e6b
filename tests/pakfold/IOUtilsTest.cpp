#include "IOUtils.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <initializer_list>
#include <string>

#include "CrcRun.h"
#include "support/ChunkedInput.h"
#include "support/Content.h"
#include "support/StringBuffer.h"
#include "support/Thrown.h"
#include "unused/BufferedInputStream.h"
#include "unused/OutputStreams.h"
#include "utils/Crc.h"

namespace ZOV_SPACE {
namespace {

TEST(IOUtils, integersRoundTripLowByteFirst) {
    StringOutputStream out;
    IOUtils::writeUChar(out, 0x1FE);
    IOUtils::writeUShort(out, 0x1FEDCu);
    IOUtils::writeUInt(out, static_cast<long>(0x98BADCFE));
    const std::string bytes = out.getString();
    EXPECT_EQ(bytes, "\xFE\xDC\xFE\xFE\xDC\xBA\x98");
    ChunkedInput in(bytes + "abc", 1);
    EXPECT_TRUE(IOUtils::readUChar(in) == 0xFE && IOUtils::readUChar(bytes.data()) == 0xFE);
    EXPECT_TRUE(IOUtils::readUShort(in) == 0xFEDC && IOUtils::readUShort(&bytes[1]) == 0xFEDC);
    EXPECT_TRUE(IOUtils::readUInt(in) == 0x98BADCFEu && IOUtils::readUInt(&bytes[3]) == 0x98BADCFEu);
    EXPECT_EQ(thrownBy([&] { IOUtils::readUInt(in); }), "unexpected EOF");
}

TEST(IOUtils, lookingAheadLeavesTheStreamWhereItWas) {
    ChunkedInput source(std::string(20, 'x') + "\x01\x02\x03\x84" + std::string(20, 'y'), 3);
    BufferedInputStream in(&source, 4);  // Keeps what the mark's limit asks for, and little more.
    EXPECT_EQ(IOUtils::getUInt(in, 20), 0x84030201u);
    EXPECT_EQ(IOUtils::getUShort(in, 20), 0x0201);
    EXPECT_EQ(IOUtils::getUChar(in, 23), 0x84);
    EXPECT_EQ(IOUtils::skip(in), 44);

    StringSource five("01234");
    ASSERT_EQ(five.stream.read(), '0');
    for (const unsigned offset : {4u, 100u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(offset);
        errno = ENOSPC;
        EXPECT_EQ(thrownBy([&] { IOUtils::getUChar(five.stream, offset); }), "No space left on device");
        EXPECT_EQ(thrownBy([&] { IOUtils::getUShort(five.stream, offset); }), "unexpected EOF");
        EXPECT_EQ(thrownBy([&] { IOUtils::getUInt(five.stream, offset - 2); }), "unexpected EOF");
    }
    EXPECT_EQ(five.stream.read(), '1');
}

TEST(IOUtils, copiesAndSkipsWhateverThePieces) {
    for (const long size : {0L, 1L, 8191L, 8192L, 8193L, 20000L}) {
        const std::string content = numbered(size);
        for (const int piece : {1, 3, 512, 8192, 100000}) {
            SCOPED_TRACE(testing::Message() << size << " bytes in pieces of " << piece);
            ChunkedInput full(content, piece);
            std::string buf(content.size() + 10, '#');
            EXPECT_EQ(IOUtils::readFull(full, buf.data(), static_cast<int>(buf.size())), size);
            EXPECT_EQ(buf, content + "##########");
            for (const long most : {-1L, 0L, 1L, 8192L, 8193L, 10000L, 20001L}) {
                ChunkedInput part(content, piece);
                StringOutputStream copied;
                IOUtils::readAndWrite(part, copied, most);
                EXPECT_EQ(copied.getString(), content.substr(0, static_cast<std::size_t>(std::max(most, 0L))));
                IOUtils::readAndWrite(part, copied);
                EXPECT_EQ(copied.getString(), content);
            }
        }
    }
}

TEST(IOUtils, stringsEndAtAZeroByteOrWithTheStream) {
    ChunkedInput in(std::string("ab\0\0\xFFz", 6), 1);
    for (const char* expected : {"ab", "", "\xFFz", ""}) EXPECT_EQ(IOUtils::readString(in), expected);
}

std::uint32_t bitwiseCrc32(const std::string& bytes) {
    std::uint32_t reg = 0xFFFFFFFF;
    for (const char byte : bytes) {
        reg ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit) reg = reg & 1 ? reg >> 1 ^ 0xEDB88320 : reg >> 1;
    }
    return ~reg;
}

TEST(Crc, everyAlignmentAndLengthAgreesWithTheBitwiseMethod) {
    ASSERT_EQ(bitwiseCrc32("123456789"), 0xCBF43926);
    std::string bytes;
    for (int i = 0; i < 80; ++i) bytes += static_cast<char>(i * i * 37);
    Iso3309Crc zip;
    for (unsigned start = 0; start < 9; ++start) {
        for (unsigned n = 0; n <= 64; ++n) {
            zip.reset();
            RarCrc rar;
            for (Crc* const crc : std::initializer_list<Crc*>{&zip, &rar}) {
                for (unsigned i = start; i < start + n / 2; ++i) crc->add(bytes[i]);
                crc->add(nullptr, 5);
                crc->add(&bytes[start + n / 2], n - n / 2);
            }
            ASSERT_EQ(zip.crc(), bitwiseCrc32(bytes.substr(start, n))) << n << " bytes from " << start;
            ASSERT_EQ(rar.crc(), ~zip.crc());
        }
    }
}

TEST(Crc, everyVersionOfTheLoopAgreesWithTheBitwiseMethod) {
    std::string bytes;
    for (unsigned i = 0, random = 1; i < 100'000; ++i) bytes += static_cast<char>((random = random * 69069 + 1) >> 24);
    const auto* const first = reinterpret_cast<const unsigned char*>(bytes.data());
    for (const CrcRun run : availableCrcRuns()) {
        for (std::size_t start = 0; start < 17; ++start) {
            for (std::size_t n = 0; n <= 300; ++n) {
                ASSERT_EQ(~run(~0U, first + start, n), bitwiseCrc32(bytes.substr(start, n))) << n << " from " << start;
            }
        }
        EXPECT_EQ(~run(~0U, first + 3, 99'990), bitwiseCrc32(bytes.substr(3, 99'990)));
    }
}

}  // namespace
}  // namespace ZOV_SPACE
