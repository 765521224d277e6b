#include "io/IOBuffer.h"

#include <gtest/gtest.h>

#include <climits>

#include "io/MemBufferBase.h"
#include "support/Thrown.h"

namespace ZOV_SPACE {
namespace {

TEST(IOBuffer, seeksByWhenceWithItsOwnAnswerToEachBadTarget) {
    struct SeekCase {
        const char* why;
        long size, from;
        int whence;
        long offset, expected;
    };
    const SeekCase cases[] = {
        {"beyond the end is allowed", 10, 3, 0, 70, 70},
        {"before the start: the start", 10, 3, 0, -5, 0},
        {"from the cursor, before the start: stays", 10, 3, 1, -5, 3},
        {"from the cursor, beyond every position: stays", 10, 3, 1, LONG_MAX, 3},
        {"from the end", 10, 3, 2, -4, 6},
        {"from the end, before the start: the end", 3, 0, 2, -5, 3},
        {"from the end, beyond every position: the end", 3, 0, 2, LONG_MAX, 3},
        {"unknown whence", 10, 3, 7, 0, 3},
    };
    for (const SeekCase& c : cases) {
        SCOPED_TRACE(c.why);
        MemBufferBase buffer;
        buffer.write(c.size - 1, 'x');
        IOBuffer cursor(&buffer);
        cursor.seek(0, c.from);
        EXPECT_EQ(cursor.seek(c.whence, c.offset), c.expected);
    }
}

TEST(IOBuffer, movesPastWhatItReadsAndWrites) {
    MemBufferBase buffer;
    buffer.append("abcdefghij", 10);
    IOBuffer cursor(&buffer);
    cursor.seek(0, 2);
    EXPECT_EQ(cursor.read(), 'c');
    EXPECT_EQ(cursor.write('X'), 1);
    EXPECT_EQ(cursor.insert("YZ", 2), 2);
    EXPECT_EQ(cursor.tell(), 6);
    EXPECT_EQ(cursor.cut(4), 6) << "the cursor";
    char content[16] = {};
    EXPECT_EQ(buffer.read(0, content, 16), 8);
    EXPECT_STREQ(content, "abcXYZij");
    EXPECT_EQ(cursor.truncate(), 0);
    EXPECT_EQ(buffer.getSize(), 6);
}

TEST(IOBuffer, makesStreamsThatStartAtTheCursorAndGoTheirOwnWay) {
    MemBufferBase buffer;
    buffer.append("abcdef", 6);
    IOBuffer cursor(&buffer);
    cursor.seek(0, 2);
    const auto input = cursor.getInputStream(), fresh = cursor.getInputStream();
    EXPECT_EQ(input->available(), 4);
    EXPECT_EQ(input->read(), 'c');
    input->mark(0);
    EXPECT_EQ(cursor.getOutputStream()->write("XYZ"), 3);
    EXPECT_EQ(input->skip(LONG_MAX), LONG_MAX);
    EXPECT_EQ(input->available(), 0);
    EXPECT_EQ(input->read(), -1);
    input->reset();
    EXPECT_EQ(input->read(), 'Y');
    EXPECT_EQ(cursor.tell(), 2);
    fresh->reset();
    EXPECT_EQ(fresh->read(), 'a') << "before mark() the mark is the start";
    cursor.seek(0, LONG_MAX);
    EXPECT_EQ(thrownBy([&] { cursor.insert("xy", 2); }), "Index out of bound");
    EXPECT_EQ(cursor.tell(), LONG_MAX);
    input->close();
    EXPECT_EQ(thrownBy([&] { input->read(); }), "Stream is already closed");
    EXPECT_EQ(unitThrownBy([&] { input->read(); }), "../../../modules/common-stl/include/io/BufferBase");
}

}  // namespace
}  // namespace ZOV_SPACE
