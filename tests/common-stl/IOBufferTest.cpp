#include "io/IOBuffer.h"

#include <gtest/gtest.h>

#include <climits>
#include <tuple>

#include "support/Content.h"
#include "support/StringBuffer.h"
#include "support/Thrown.h"

namespace ZOV_SPACE {
namespace {

TEST(IOBuffer, seeksByWhenceWithItsOwnAnswerToEachBadTarget) {
    // From 3, in 10 bytes.
    const std::tuple<const char*, int, long, long> cases[] = {
        {"beyond the end is allowed", 0, 70, 70},
        {"before the start: the start", 0, -5, 0},
        {"from the cursor, before the start: stays", 1, -5, 3},
        {"from the cursor, beyond every position: stays", 1, LONG_MAX, 3},
        {"from the end", 2, -4, 6},
        {"from the end, before the start: the end", 2, -11, 10},
        {"from the end, beyond every position: the end", 2, LONG_MAX, 10},
        {"unknown whence", 7, 0, 3},
    };
    for (const auto& [why, whence, offset, expected] : cases) {
        StringBuffer buffer("abcdefghij");
        IOBuffer cursor(&buffer);
        cursor.seek(0, 3);
        EXPECT_EQ(cursor.seek(whence, offset), expected) << why;
    }
}

TEST(IOBuffer, movesPastWhatItReadsAndWrites) {
    StringBuffer buffer("abcdefghij");
    IOBuffer cursor(&buffer);
    cursor.seek(0, 2);
    EXPECT_EQ(cursor.read(), 'c');
    EXPECT_EQ(cursor.write('X'), 1);
    EXPECT_EQ(cursor.insert("YZ", 2), 2);
    EXPECT_EQ(cursor.tell(), 6);
    EXPECT_EQ(cursor.cut(4), 6) << "the cursor";
    EXPECT_EQ(contentOf(buffer), "abcXYZij");
    EXPECT_EQ(cursor.truncate(), 0);
    EXPECT_EQ(buffer.getSize(), 6);
    cursor.seek(0, LONG_MAX);
    EXPECT_EQ(thrownBy([&] { cursor.insert("xy", 2); }), "Index out of bound");
    EXPECT_EQ(cursor.tell(), LONG_MAX);
}

TEST(IOBuffer, makesStreamsThatStartAtTheCursorAndGoTheirOwnWay) {
    StringBuffer buffer("abcdef");
    IOBuffer cursor(&buffer);
    cursor.seek(0, 2);
    const auto input = cursor.getInputStream(), fresh = cursor.getInputStream();
    EXPECT_EQ(input->read(), 'c');
    input->mark(0);
    EXPECT_EQ(cursor.getOutputStream()->write("XYZ"), 3);
    EXPECT_EQ(input->skip(LONG_MAX), LONG_MAX);
    EXPECT_EQ(input->read(), -1);
    input->reset();
    EXPECT_EQ(input->read(), 'Y');
    EXPECT_EQ(cursor.tell(), 2);
    fresh->reset();
    EXPECT_EQ(fresh->read(), 'a') << "before mark() the mark is the start";
}

}  // namespace
}  // namespace ZOV_SPACE
