#include <fcntl.h>
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <initializer_list>
#include <sstream>
#include <tuple>
#include <vector>

#include "io/IOBuffer.h"
#include "support/ChunkedInput.h"
#include "support/Content.h"
#include "support/StringBuffer.h"
#include "support/Thrown.h"
#include "unused/BufferedInputStream.h"
#include "unused/OutputStreams.h"
#include "unused/PipeBufferBase.h"

namespace ZOV_SPACE {
namespace {

using Calls = std::vector<std::function<void()>>;

Calls callsOf(InputStream& in) {
    static char byte;
    return {[&] { in.available(); }, [&] { in.close(); }, [&] { in.read(); },  [&] { in.read(&byte, 1); },
            [&] { in.skip(1); },     [&] { in.mark(1); }, [&] { in.reset(); }, [&] { in.markSupported(); }};
}

Calls callsOf(OutputStream& out) {
    return {[&] { out.close(); }, [&] { out.write('x'); }, [&] { out.write("x"); }, [&] { out.flush(); }};
}

void expectRefused(const char* error, const Calls& calls, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(thrownBy(calls[i]), error) << i;
}

TEST(Streams, refuseEveryOperationThatIsNotTheirsOrFollowsClose) {
    TempFile file("x");
    ChunkedInput chunked("x", 1);
    MemBufferBase buffer;
    StringOutputStream collected, closed;
    FileInputStream fileInput(file.fd());
    BufferedInputStream bufferedInput(&chunked);
    BufferBaseInputStream viewInput(&buffer);
    for (InputStream* const in : std::initializer_list<InputStream*>{&fileInput, &bufferedInput, &viewInput}) {
        in->close();
        expectRefused("Stream is already closed", callsOf(*in), 8);
    }
    FileOutputStream fileOutput(file.fd());
    BufferedOutputStream bufferedOutput(&collected);
    BufferBaseOutputStream viewOutput(&buffer);
    PipeBufferBase pipe(&buffer);
    for (OutputStream* const out : std::initializer_list<OutputStream*>{&fileOutput, &bufferedOutput, &viewOutput,
                                                                        &closed, pipe.getProducerOutputStream()}) {
        out->close();
        expectRefused("Stream is already closed", callsOf(*out), 4);
    }
    EXPECT_EQ(buffer.getSize(), 0) << "nothing was written after close";
    EXPECT_NE(::fcntl(file.fd(), F_GETFD), -1) << "a wrapped descriptor stays its owner's";
    InputStream input;
    OutputStream output;
    expectRefused("Unimplemented", callsOf(input), 5);
    expectRefused("Unimplemented", callsOf(output), 3);
    EXPECT_EQ(unitThrownBy(callsOf(input)[0]), "../../../modules/common-stl/include/io/InputStream");
    EXPECT_EQ(thrownBy([] { FileInputStream("/nowhere/x"); }), "/nowhere/x: No such file or directory");
    EXPECT_EQ(thrownBy([] { FileInputStream(-1).read(); }), "Bad file descriptor");
    FileOutputStream full("/dev/full", O_WRONLY);
    EXPECT_EQ(thrownBy([&] { full.write("text"); }), "No space left on device");
}

// Byte by byte and in bulk, in turn.
void copy(InputStream& input, OutputStream& output) {
    char piece[600];
    for (int byte, count = 0; (byte = input.read()) >= 0; output.write(piece, count)) {
        output.write(static_cast<char>(byte));
        count = input.read(piece, 1 + byte * 7 % 600);
    }
}

TEST(BufferedStreams, handOnEveryByteAndEveryLineForEveryBlockSize) {
    for (const std::string& text : {std::string(), std::string("\n"), "a\rb\r\r\n\r\nc\r" + std::string(50, 'x'),
                                    std::string(50, 'x') + "\ny", numbered(2000)}) {
        for (const auto& [block, chunk] : {std::pair{1, 1}, {1, 512}, {3, 64}, {7, 3}, {512, 1}, {4096, 3}}) {
            SCOPED_TRACE(testing::Message() << text.substr(0, 20) << ", block " << block << ", chunks of " << chunk);
            ChunkedInput bytes(text, chunk), lines(text, chunk);
            BufferedInputStream input(&bytes, block), lineInput(&lines, block);
            StringOutputStream collected;
            BufferedOutputStream output(&collected, block);
            copy(input, output);
            output.close();
            EXPECT_EQ(collected.getString(), text);
            std::istringstream expected(text);
            std::string line;
            for (std::string wanted; std::getline(expected, wanted);) {
                if (!expected.eof() && wanted.ends_with('\r')) wanted.pop_back();
                EXPECT_TRUE(lineInput.readLine(line));
                EXPECT_EQ(line, wanted);
            }
            EXPECT_FALSE(lineInput.readLine(line));
        }
    }
}

// A file's mark holds for ever.
TEST(InputStreams, returnToTheMarkAsLongAsItHolds) {
    const std::string text = numbered(100);
    const std::tuple<const char*, int, int, int, bool> cases[] = {
        {"the block moves down to the mark", 10, 12, 12, true},
        {"the block grows to the limit", 10, 60, 60, true},
        {"a limit below the block costs nothing before the block is full", 0, 1, 16, true},
        {"read past limit and block", 0, 16, 17, false},
    };
    for (const auto& [why, before, readLimit, readOn, holds] : cases) {
        TempFile file(text);
        FileInputStream fileInput(file.path());
        ChunkedInput inner(text, 7);
        BufferedInputStream buffered(&inner, 16);
        for (InputStream* const in : std::initializer_list<InputStream*>{&fileInput, &buffered}) {
            SCOPED_TRACE(why);
            const bool returns = holds || in == &fileInput;
            const std::string unmarked = in == &fileInput ? "No mark set" : "No mark was set";
            EXPECT_EQ(thrownBy([&] { in->reset(); }), unmarked);
            in->skip(before);
            in->mark(readLimit);
            EXPECT_EQ(in->skip(readOn), readOn);
            EXPECT_EQ(thrownBy([&] { in->reset(); }), returns ? "<nothing>" : unmarked);
            StringOutputStream rest;
            copy(*in, rest);
            EXPECT_EQ(rest.getString(), text.substr(static_cast<std::size_t>(returns ? before : before + readOn)));
        }
    }
}

TEST(IOBuffer, movesPastWhatItReadsAndWritesButNotWithItsStreams) {
    StringBuffer buffer("abcdefghij");
    IOBuffer cursor(&buffer);
    cursor.seek(0, 2);
    EXPECT_EQ(cursor.read(), 'c');
    EXPECT_EQ(cursor.write('X'), 1);
    EXPECT_EQ(cursor.insert("YZ", 2), 2);
    EXPECT_EQ(cursor.cut(4), 6) << "the cursor";
    EXPECT_EQ(contentOf(buffer), "abcXYZij");
    EXPECT_EQ(cursor.truncate(), 0);
    const auto input = cursor.getInputStream(), fresh = cursor.getInputStream();
    EXPECT_EQ(cursor.getOutputStream()->write("klm"), 3);
    EXPECT_EQ(input->read(), 'k');
    input->mark(0);
    EXPECT_EQ(input->skip(LONG_MAX), LONG_MAX);
    EXPECT_EQ(input->read(), -1);
    input->reset();
    EXPECT_EQ(input->read(), 'l');
    fresh->reset();
    EXPECT_EQ(fresh->read(), 'a') << "before mark() the mark is the start";
    EXPECT_EQ(cursor.tell(), 6);
    cursor.seek(0, LONG_MAX);
    EXPECT_EQ(cursor.read(), -1);
    EXPECT_EQ(thrownBy([&] { cursor.insert("xy", 2); }), "Index out of bound");
    EXPECT_EQ(cursor.tell(), LONG_MAX);
}

}  // namespace
}  // namespace ZOV_SPACE
