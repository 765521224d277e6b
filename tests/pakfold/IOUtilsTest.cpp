#include "utils/IOUtils.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "Exception.h"
#include "Raise.h"
#include "io/BufferBaseStreams.h"
#include "io/InputStream.h"
#include "io/MemBufferBase.h"
#include "io/OutputStream.h"
#include "support/Thrown.h"

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

// A stream that can go back, over its own memory.
struct MarkableStream {
    explicit MarkableStream(const std::string& content) {
        buffer.append(content.data(), static_cast<int>(content.size()));
    }
    MemBufferBase buffer;
    BufferBaseInputStream stream{&buffer};
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
    IOUtils::writeUInt(out, -2);
    const std::string expected("\xFE\xDC\xFE\xFE\xDC\xBA\x98\xFE\xFF\xFF\xFF", 11);
    EXPECT_EQ(out.getString(), expected);

    char bytes[12] = {};
    IOUtils::writeUChar(bytes, 0x1FE);
    IOUtils::writeUShort(bytes + 1, 0x1FEDCu);
    IOUtils::writeUInt(bytes + 3, static_cast<long>(0x98BADCFE));
    IOUtils::writeUInt(bytes + 7, -2);
    EXPECT_EQ(std::string(bytes, 11), expected);

    TrickleStream in(expected, 1);
    EXPECT_EQ(IOUtils::readUChar(in), 0xFE);
    EXPECT_EQ(IOUtils::readUShort(in), 0xFEDC);
    EXPECT_EQ(IOUtils::readUInt(in), 0x98BADCFEu);
    EXPECT_EQ(IOUtils::readUInt(in), 0xFFFFFFFEu);
    EXPECT_EQ(IOUtils::readUChar(bytes), 0xFE);
    EXPECT_EQ(IOUtils::readUShort(bytes + 1), 0xFEDC);
    EXPECT_EQ(IOUtils::readUInt(bytes + 3), 0x98BADCFEu);
}

TEST(IOUtils, integersCutShortThrow) {
    const std::string error = "IOUtils, line57: unexpected EOF";
    TrickleStream none("", 1), one("a", 1), three("abc", 1);
    EXPECT_EQ(errorOf([&] { IOUtils::readUChar(none); }), error);
    EXPECT_EQ(errorOf([&] { IOUtils::readUShort(one); }), error);
    EXPECT_EQ(errorOf([&] { IOUtils::readUInt(three); }), error);
}

TEST(IOUtils, lookingAheadLeavesTheStreamWhereItWas) {
    MarkableStream in("0123456789\x01\x02\x03\x84");
    ASSERT_EQ(in.stream.read(), '0');
    EXPECT_EQ(IOUtils::getUInt(in.stream, 9), 0x84030201u);
    EXPECT_EQ(IOUtils::getUShort(in.stream, 9), 0x0201);
    EXPECT_EQ(IOUtils::getUChar(in.stream, 12), 0x84);
    EXPECT_EQ(IOUtils::getUChar(in.stream, 0), '1');
    EXPECT_EQ(in.stream.read(), '1');
}

TEST(IOUtils, lookingAheadMarksFarEnough) {
    TrickleStream source(std::string(20, 'x') + "\x01\x02\x03\x84" + std::string(20, 'y'), 3);
    BufferedInputStream in(&source, 4);  // Keeps what the mark's limit asks for, and little more.
    EXPECT_EQ(IOUtils::getUInt(in, 20), 0x84030201u);
    EXPECT_EQ(IOUtils::getUShort(in, 20), 0x0201);
    EXPECT_EQ(IOUtils::getUChar(in, 23), 0x84);
    EXPECT_EQ(IOUtils::skip(in), 44);
}

TEST(IOUtils, lookingBeyondTheEndThrowsAndLeavesTheStreamWhereItWas) {
    MarkableStream in("01234");
    ASSERT_EQ(in.stream.read(), '0');
    for (const unsigned offset : {4u, 100u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(offset);
        errno = ENOSPC;
        EXPECT_EQ(errorOf([&] { IOUtils::getUChar(in.stream, offset); }),
                  std::string("IOUtils, line25: ") + std::strerror(ENOSPC));
        EXPECT_EQ(errorOf([&] { IOUtils::getUShort(in.stream, offset); }), "IOUtils, line57: unexpected EOF");
        EXPECT_EQ(errorOf([&] { IOUtils::getUInt(in.stream, offset - 2); }), "IOUtils, line57: unexpected EOF");
    }
    EXPECT_EQ(in.stream.read(), '1');
}

TEST(IOUtils, lookingAheadReturnsFromASkipThatFails) {
    class BrokenSkip : public BufferBaseInputStream {
    public:
        using BufferBaseInputStream::BufferBaseInputStream;
        long skip(long n) override {
            BufferBaseInputStream::skip(n);
            raise<IOException>("skip failed");
        }
    };
    MarkableStream content("01234");
    BrokenSkip in(&content.buffer);
    EXPECT_EQ(thrownBy([&] { IOUtils::getUShort(in, 2); }), "skip failed");
    EXPECT_EQ(in.read(), '0');
}

TEST(IOUtils, copiesAndSkipsWhateverThePieces) {
    for (const std::size_t size : {0u, 1u, 1024u, 8191u, 8192u, 8193u, 20000u}) {
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
    struct Case {
        long n;
        std::size_t copied;
    };
    for (const Case& c : {Case{-1, 0}, Case{0, 0}, Case{1, 1}, Case{8192, 8192}, Case{8193, 8193}, Case{10000, 9000}}) {
        SCOPED_TRACE(c.n);
        TrickleStream in(std::string(9000, 'x'), 5000);
        StringOutputStream out;
        IOUtils::readAndWrite(in, out, c.n);
        EXPECT_EQ(out.getString().size(), c.copied);
        EXPECT_EQ(IOUtils::readFull(in), static_cast<long>(9000 - c.copied));
    }
    TrickleStream in("abc", 1);
    char buf[4] = "---";
    EXPECT_EQ(IOUtils::readFull(in, buf, 0), 0);
    EXPECT_EQ(IOUtils::readFull(in, buf, 2), 2);
    EXPECT_STREQ(buf, "ab-");
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
