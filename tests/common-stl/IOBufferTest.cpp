#include "io/IOBuffer.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>

#include "io/MemBufferBase.h"
#include "support/Thrown.h"

namespace ZOV_SPACE {
namespace {

std::string contentOf(BufferBase& buffer) {
    std::string all(static_cast<std::size_t>(buffer.getSize()), '?');
    buffer.read(0, all.data(), static_cast<int>(all.size()));
    return all;
}

TEST(IOBuffer, seeksByWhenceWithItsOwnAnswerToEachBadTarget) {
    struct SeekCase {
        const char* why;
        long size, from;
        int whence;
        long offset, expected;
    };
    const SeekCase cases[] = {
        {"from the start", 10, 3, 0, 7, 7},
        {"beyond the end is allowed", 10, 3, 0, 70, 70},
        {"before the start: the start", 10, 3, 0, -5, 0},
        {"from the cursor", 10, 3, 1, -3, 0},
        {"from the cursor, before the start: stays", 10, 3, 1, -5, 3},
        {"from the cursor, beyond every position: stays", 10, 3, 1, LONG_MAX, 3},
        {"from the end", 10, 3, 2, -4, 6},
        {"from the end, beyond it", 3, 0, 2, 10, 13},
        {"from the end, before the start: the end", 3, 0, 2, -5, 3},
        {"from the end, beyond every position: the end", 3, 0, 2, LONG_MAX, 3},
        {"smallest offset", 3, 2, 1, LONG_MIN, 2},
        {"unknown whence", 10, 3, 7, 0, 3},
    };
    for (const SeekCase& c : cases) {
        SCOPED_TRACE(c.why);
        MemBufferBase buffer;
        buffer.write(c.size - 1, 'x');
        IOBuffer cursor(&buffer);
        cursor.seek(0, c.from);
        EXPECT_EQ(cursor.seek(c.whence, c.offset), c.expected);
        EXPECT_EQ(cursor.tell(), c.expected);
    }
}

TEST(IOBuffer, movesPastWhatItReadsAndWrites) {
    struct StepCase {
        const char* why;
        std::function<long(IOBuffer&)> call;
        long result, cursor;
        const char* content;
    };
    const StepCase cases[] = {
        {"read", [](IOBuffer& c) { return long{c.read()}; }, 'c', 3, "abcdefghij"},
        {"write", [](IOBuffer& c) { return long{c.write('X')}; }, 1, 3, "abXdefghij"},
        {"bulk write", [](IOBuffer& c) { return long{c.write("XY", 2)}; }, 2, 4, "abXYefghij"},
        {"insert", [](IOBuffer& c) { return long{c.insert('X')}; }, 1, 3, "abXcdefghij"},
        {"bulk insert", [](IOBuffer& c) { return long{c.insert("XY", 2)}; }, 2, 4, "abXYcdefghij"},
        {"nothing to write", [](IOBuffer& c) { return long{c.write(nullptr, 2)}; }, 0, 2, "abcdefghij"},
        {"cut answers the cursor", [](IOBuffer& c) { return c.cut(4); }, 2, 2, "abghij"},
        {"truncate", [](IOBuffer& c) { return long{c.truncate()}; }, 0, 2, "ab"},
    };
    for (const StepCase& c : cases) {
        SCOPED_TRACE(c.why);
        MemBufferBase buffer;
        buffer.append("abcdefghij", 10);
        IOBuffer cursor(&buffer);
        cursor.seek(0, 2);
        EXPECT_EQ(c.call(cursor), c.result);
        EXPECT_EQ(cursor.tell(), c.cursor);
        EXPECT_EQ(contentOf(buffer), c.content);
    }
}

TEST(IOBuffer, staysAtTheEndAndWhereTheBufferThrows) {
    MemBufferBase buffer;
    IOBuffer cursor(&buffer);
    char bytes[4];
    EXPECT_EQ(cursor.read(), -1);
    EXPECT_EQ(cursor.read(bytes, 4), 0);
    EXPECT_EQ(cursor.tell(), 0);
    cursor.seek(0, LONG_MAX);
    EXPECT_EQ(thrownBy([&] { cursor.write('x'); }), "Index out of bound");
    EXPECT_EQ(thrownBy([&] { cursor.insert("xy", 2); }), "Index out of bound");
    EXPECT_EQ(cursor.tell(), LONG_MAX);
}

TEST(IOBuffer, makesStreamsThatStartAtTheCursorAndGoTheirOwnWay) {
    MemBufferBase buffer;
    buffer.append("abcdef", 6);
    IOBuffer cursor(&buffer);
    cursor.seek(0, 2);
    EXPECT_EQ(cursor.view().size(), 4u);
    const auto input = cursor.getInputStream();
    const auto output = cursor.getOutputStream();
    char bytes[8];
    EXPECT_EQ(input->available(), 4);
    EXPECT_EQ(input->read(), 'c');
    input->mark(0);
    EXPECT_EQ(output->write("XY"), 2);
    EXPECT_EQ(output->write('Z'), 1);
    EXPECT_EQ(input->read(bytes, 8), 3);
    EXPECT_EQ(std::string(bytes, 3), "YZf");
    input->reset();
    EXPECT_EQ(input->read(), 'Y');
    EXPECT_EQ(cursor.tell(), 2);
    const auto fresh = cursor.getInputStream();
    fresh->reset();
    EXPECT_EQ(fresh->read(), 'a') << "before mark() the mark is the start";
}

TEST(BufferBaseStreams, skipWithoutBoundAndRefuseAfterClose) {
    MemBufferBase buffer;
    buffer.append("abc", 3);
    BufferBaseInputStream input(&buffer, 1, -1);
    EXPECT_TRUE(input.markSupported());
    EXPECT_EQ(input.skip(-1), 0);
    input.reset();
    EXPECT_EQ(input.read(), 'b') << "without a mark reset() stays";
    EXPECT_EQ(input.skip(100), 100);
    EXPECT_EQ(input.skip(LONG_MAX), LONG_MAX);
    EXPECT_EQ(input.available(), 0);
    EXPECT_EQ(input.read(), -1);
    BufferBaseInputStream negative(&buffer, LONG_MIN);
    EXPECT_EQ(negative.available(), 3);
    EXPECT_EQ(negative.skip(1), 1);
    EXPECT_EQ(negative.read(), 'b');
    BufferBaseOutputStream output(&buffer);
    input.close();
    output.close();
    char byte;
    const std::function<void()> calls[] = {
        [&] { input.available(); },    [&] { input.close(); },     [&] { input.read(); },
        [&] { input.read(&byte, 1); }, [&] { input.skip(-1); },    [&] { input.markSupported(); },
        [&] { input.mark(0); },        [&] { input.reset(); },     [&] { output.close(); },
        [&] { output.flush(); },       [&] { output.write('x'); }, [&] { output.write("x", 1); },
    };
    for (const auto& call : calls) EXPECT_EQ(thrownBy(call), "Stream is already closed");
    EXPECT_EQ(unitThrownBy(calls[0]), "../../../modules/common-stl/include/io/BufferBase");
}

}  // namespace
}  // namespace ZOV_SPACE
