#include "utils/IOUtils.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "Exception.h"
#include "io/BufferBaseStreams.h"
#include "io/InputStream.h"
#include "io/MemBufferBase.h"
#include "io/OutputStream.h"

namespace ZOV_SPACE {
namespace {

// Hands out its content in pieces of at most `piece` bytes.
class TrickleStream : public InputStream {
public:
    TrickleStream(std::string content, int piece) : _content(std::move(content)), _piece(piece) {}

    int read() override { return _position < _content.size() ? static_cast<unsigned char>(_content[_position++]) : -1; }
    int read(char* buf, int len) override {
        const std::size_t count = _content.copy(buf, static_cast<std::size_t>(std::min(len, _piece)), _position);
        _position += count;
        return static_cast<int>(count);
    }

private:
    std::string _content;
    int _piece;
    std::size_t _position = 0;
};

template <class Call>
std::string errorOf(Call call) {
    try {
        call();
    } catch (IOException& e) {
        return e.getErrorLocation() + ": " + e.getMessage();
    }
    return "none";
}

TEST(IOUtils, integersRoundTripLowByteFirst) {
    StringOutputStream out;
    IOUtils::writeUChar(out, 0x1FE);
    IOUtils::writeUShort(out, 0x1FEDCu);
    IOUtils::writeUInt(out, static_cast<long>(0x98BADCFE));
    char bytes[8] = {};
    IOUtils::writeUChar(bytes, 0x1FE);
    IOUtils::writeUShort(bytes + 1, 0x1FEDCu);
    IOUtils::writeUInt(bytes + 3, static_cast<long>(0x98BADCFE));
    const std::string expected = "\xFE\xDC\xFE\xFE\xDC\xBA\x98";
    EXPECT_EQ(out.getString(), expected);
    EXPECT_EQ(bytes, expected);
    TrickleStream in(expected, 1);
    EXPECT_EQ(IOUtils::readUChar(in), IOUtils::readUChar(bytes));
    EXPECT_EQ(IOUtils::readUShort(in), 0xFEDC);
    EXPECT_EQ(IOUtils::readUInt(in), 0x98BADCFEu);
    EXPECT_EQ(IOUtils::readUShort(bytes + 1), 0xFEDC);
    EXPECT_EQ(IOUtils::readUInt(bytes + 3), 0x98BADCFEu);
    TrickleStream three("abc", 1);
    EXPECT_EQ(errorOf([&] { IOUtils::readUInt(three); }), "IOUtils, line57: unexpected EOF");
}

TEST(IOUtils, lookingAheadMarksFarEnoughAndLeavesTheStreamWhereItWas) {
    TrickleStream source(std::string(20, 'x') + "\x01\x02\x03\x84" + std::string(20, 'y'), 3);
    BufferedInputStream in(&source, 4);  // Keeps what the mark's limit asks for, and little more.
    EXPECT_EQ(IOUtils::getUInt(in, 20), 0x84030201u);
    EXPECT_EQ(IOUtils::getUShort(in, 20), 0x0201);
    EXPECT_EQ(IOUtils::getUChar(in, 23), 0x84);
    EXPECT_EQ(IOUtils::skip(in), 44);
}

TEST(IOUtils, lookingBeyondTheEndThrowsAndLeavesTheStreamWhereItWas) {
    MemBufferBase buffer;
    buffer.append("01234", 5);
    BufferBaseInputStream in(&buffer);
    ASSERT_EQ(in.read(), '0');
    for (const unsigned offset : {4u, 100u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(offset);
        errno = ENOSPC;
        EXPECT_EQ(errorOf([&] { IOUtils::getUChar(in, offset); }), "IOUtils, line25: No space left on device");
        EXPECT_EQ(errorOf([&] { IOUtils::getUShort(in, offset); }), "IOUtils, line57: unexpected EOF");
        EXPECT_EQ(errorOf([&] { IOUtils::getUInt(in, offset - 2); }), "IOUtils, line57: unexpected EOF");
    }
    EXPECT_EQ(in.read(), '1');
}

TEST(IOUtils, copiesAndSkipsWhateverThePieces) {
    for (const std::size_t size : {0u, 1u, 8191u, 8192u, 8193u, 20000u}) {
        std::string content(size, '\0');
        for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<char>(i * 7 + i / 251);
        for (const int piece : {1, 3, 512, 8192, 100000}) {
            SCOPED_TRACE(testing::Message() << size << " bytes in pieces of " << piece);
            TrickleStream skipped(content, piece), copied(content, piece), full(content, piece);
            EXPECT_EQ(IOUtils::skip(skipped), static_cast<long>(size));
            StringOutputStream out;
            IOUtils::readAndWrite(copied, out);
            EXPECT_EQ(out.getString(), content);
            std::string buf(size + 10, '#');
            EXPECT_EQ(IOUtils::readFull(full, buf.data(), static_cast<int>(buf.size())), static_cast<int>(size));
            EXPECT_EQ(buf, content + "##########");
        }
    }
}

TEST(IOUtils, limitedCopiesLeaveTheRest) {
    for (const long n : {-1L, 0L, 1L, 8192L, 8193L, 10000L}) {
        TrickleStream in(std::string(9000, 'x'), 5000);
        StringOutputStream out;
        IOUtils::readAndWrite(in, out, n);
        const long copied = std::clamp(n, 0L, 9000L);
        EXPECT_EQ(static_cast<long>(out.getString().size()), copied) << n;
        EXPECT_EQ(IOUtils::readFull(in), 9000 - copied);
    }
}

TEST(IOUtils, stringsEndAtAZeroByteOrWithTheStream) {
    TrickleStream in(std::string("ab\0\0\xFFz", 6), 1);
    EXPECT_EQ(IOUtils::readString(in), "ab");
    EXPECT_EQ(IOUtils::readString(in), "");
    EXPECT_EQ(IOUtils::readString(in), "\xFFz");
    EXPECT_EQ(IOUtils::readString(in), "");
}

}  // namespace
}  // namespace ZOV_SPACE
