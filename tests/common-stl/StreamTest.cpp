#include <fcntl.h>
#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <tuple>
#include <vector>

#include "io/BufferBaseStreams.h"
#include "io/MemBufferBase.h"
#include "support/ChunkedInput.h"
#include "support/Content.h"
#include "support/TempFile.h"
#include "support/Thrown.h"
#include "unused/BufferedInputStream.h"
#include "unused/OutputStreams.h"

namespace ZOV_SPACE {
namespace {

std::string restOf(InputStream& input) {
    std::string all;
    for (int byte; (byte = input.read()) >= 0;) all += static_cast<char>(byte);
    return all;
}

using Calls = std::vector<std::function<void()>>;

Calls callsOf(InputStream& in) {
    static char byte;
    return {[&] { in.available(); }, [&] { in.close(); }, [&] { in.read(); },  [&] { in.read(&byte, 1); },
            [&] { in.skip(1); },     [&] { in.mark(1); }, [&] { in.reset(); }, [&] { in.markSupported(); }};
}

Calls callsOf(OutputStream& out) {
    return {[&] { out.close(); }, [&] { out.write('x'); }, [&] { out.write("x"); }, [&] { out.flush(); }};
}

TEST(Streams, refuseEveryOperationThatIsNotTheirsOrFollowsClose) {
    TempFile file("x");
    ChunkedInput chunked("x", 1);
    MemBufferBase buffer;
    StringOutputStream collected, closed;
    FileInputStream fileInput(file.fd());
    BufferedInputStream bufferedInput(&chunked);
    BufferBaseInputStream viewInput(&buffer);
    FileOutputStream fileOutput(file.fd());
    BufferedOutputStream bufferedOutput(&collected);
    BufferBaseOutputStream viewOutput(&buffer);
    const auto expect = [](const char* error, const Calls& calls, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(thrownBy(calls[i]), error) << i;
    };
    for (InputStream* in : {static_cast<InputStream*>(&fileInput), static_cast<InputStream*>(&bufferedInput),
                            static_cast<InputStream*>(&viewInput)}) {
        in->close();
        expect("Stream is already closed", callsOf(*in), 8);
    }
    for (OutputStream* out : {static_cast<OutputStream*>(&fileOutput), static_cast<OutputStream*>(&bufferedOutput),
                              static_cast<OutputStream*>(&viewOutput), static_cast<OutputStream*>(&closed)}) {
        out->close();
        expect("Stream is already closed", callsOf(*out), 4);
    }
    EXPECT_EQ(buffer.getSize(), 0) << "nothing was written after close";
    EXPECT_NE(::fcntl(file.fd(), F_GETFD), -1) << "a wrapped descriptor stays its owner's";
    InputStream input;
    OutputStream output;
    expect("Unimplemented", callsOf(input), 5);
    expect("Unimplemented", callsOf(output), 3);
    EXPECT_EQ(unitThrownBy(callsOf(input)[0]), "../../../modules/common-stl/include/io/InputStream");
}

TEST(FileStreams, returnToTheMarkAndNameThePathOrTheSystemErrorWhenTheyFail) {
    TempFile file("abcdef");
    FileInputStream input(file.path());
    char bytes[8];
    EXPECT_EQ(thrownBy([&] { input.reset(); }), "No mark set");
    EXPECT_EQ(input.read(), 'a');
    input.mark(1);
    EXPECT_EQ(input.skip(2), 2);
    EXPECT_EQ(input.read(bytes, 8), 3);
    EXPECT_EQ(input.read(), -1);
    input.reset();
    EXPECT_EQ(input.read(), 'b');

    EXPECT_EQ(thrownBy([] { FileInputStream("/nowhere/x"); }), "/nowhere/x: No such file or directory");
    EXPECT_EQ(thrownBy([] { FileInputStream(-1).read(); }), "Bad file descriptor");
    FileOutputStream full("/dev/full", O_WRONLY);
    BufferedOutputStream buffered(&full, 16);
    buffered.write("text");
    EXPECT_EQ(thrownBy([&] { buffered.flush(); }), "No space left on device");
}

TEST(BufferedStreams, handOnEveryByteAndEveryLineForEveryBlockSize) {
    for (const std::string& text : {std::string(), std::string("\n"), std::string("one\ntwo\r\n\r\nthree"),
                                    std::string("a\rb\r\r\nc\r"), std::string(50, 'x') + "\ny", numbered(2000)}) {
        for (const auto& [block, chunk] :
             {std::pair{1, 1}, {1, 512}, {3, 64}, {7, 3}, {512, 1}, {512, 512}, {4096, 3}}) {
            SCOPED_TRACE(testing::Message() << text.substr(0, 20) << ", block " << block << ", chunks of " << chunk);
            ChunkedInput bytes(text, chunk), lines(text, chunk);
            BufferedInputStream input(&bytes, block), lineInput(&lines, block);
            StringOutputStream collected;
            BufferedOutputStream output(&collected, block);
            char piece[600];
            for (int byte, count = 0; (byte = input.read()) >= 0; output.write(piece, count)) {
                output.write(static_cast<char>(byte));
                count = input.read(piece, 1 + byte * 7 % 600);
            }
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

TEST(BufferedInputStream, keepsTheMarkForItsLimit) {
    const std::string text = numbered(100);
    const std::tuple<const char*, int, int, int, bool> cases[] = {
        {"the block moves down to the mark", 10, 12, 12, true},
        {"the block grows to the limit", 10, 60, 60, true},
        {"a limit below the block costs nothing before the block is full", 0, 1, 16, true},
        {"read past limit and block", 0, 16, 17, false},
    };
    for (const auto& [why, before, readLimit, readOn, holds] : cases) {
        SCOPED_TRACE(why);
        ChunkedInput inner(text, 7);
        BufferedInputStream input(&inner, 16);
        EXPECT_EQ(thrownBy([&] { input.reset(); }), "No mark was set");
        input.skip(before);
        input.mark(readLimit);
        EXPECT_EQ(input.skip(readOn), readOn);
        EXPECT_EQ(thrownBy([&] { input.reset(); }), holds ? "<nothing>" : "No mark was set");
        EXPECT_EQ(restOf(input), text.substr(static_cast<std::size_t>(holds ? before : before + readOn)));
    }
}

}  // namespace
}  // namespace ZOV_SPACE
