#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

#include "io/InputStream.h"
#include "io/OutputStream.h"
#include "support/TempFile.h"
#include "support/Thrown.h"

namespace ZOV_SPACE {
namespace {

constexpr char kClosed[] = "Stream is already closed";

// A text in pieces of at most `chunk` bytes.
class ChunkedInput : public InputStream {
public:
    ChunkedInput(std::string text, int chunk) : _text(std::move(text)), _chunk(chunk) {}

    int available() override { return static_cast<int>(_text.size() - _next); }
    void close() override {}
    int read() override { return _next < _text.size() ? static_cast<unsigned char>(_text[_next++]) : -1; }
    int read(char* buf, int len) override { return InputStream::read(buf, std::min(len, _chunk)); }

private:
    std::string _text;
    std::size_t _next = 0;
    int _chunk;
};

std::string numbered(int size) {
    std::string text;
    for (int i = 0; i < size; ++i) text += static_cast<char>(i * 31 + i / 256);
    return text;
}

TEST(Streams, withoutOwnOperationsSayUnimplemented) {
    InputStream input;
    OutputStream output;
    char byte;
    const std::function<void()> calls[] = {
        [&] { input.available(); },    [&] { input.close(); },  [&] { input.read(); },
        [&] { input.read(&byte, 1); }, [&] { output.close(); }, [&] { output.write('x'); },
        [&] { output.write("x"); },
    };
    for (const auto& call : calls) EXPECT_EQ(thrownBy(call), "Unimplemented");
    EXPECT_EQ(unitThrownBy(calls[0]), "../../../modules/common-stl/include/io/InputStream");
    EXPECT_FALSE(input.markSupported());
    output.flush();
}

TEST(Streams, refuseEveryOperationAfterClose) {
    TempFile file("x");
    ChunkedInput chunked("x", 1);
    StringOutputStream collected;
    FileInputStream fileInput(file.fd());
    BufferedInputStream bufferedInput(&chunked);
    FileOutputStream fileOutput(file.fd());
    BufferedOutputStream bufferedOutput(&collected);
    for (InputStream* input : std::initializer_list<InputStream*>{&fileInput, &bufferedInput}) {
        input->close();
        const std::function<void()> calls[] = {[=] { input->available(); }, [=] { input->close(); },
                                               [=] { input->read(); },      [=] { input->skip(0); },
                                               [=] { input->mark(1); },     [=] { input->reset(); }};
        for (const auto& call : calls) EXPECT_EQ(thrownBy(call), kClosed) << &call - calls;
    }
    for (OutputStream* output : std::initializer_list<OutputStream*>{&fileOutput, &bufferedOutput}) {
        output->close();
        EXPECT_EQ(thrownBy([&] { output->close(); }), kClosed);
        EXPECT_EQ(thrownBy([&] { output->flush(); }), kClosed);
        EXPECT_EQ(thrownBy([&] { output->write("x", 1); }), kClosed);
    }
    EXPECT_NE(::fcntl(file.fd(), F_GETFD), -1) << "a wrapped descriptor stays its owner's";
}

TEST(FileInputStream, readsToTheEndAndReturnsToTheMark) {
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
}

TEST(FileStreams, nameThePathOrTheSystemErrorWhenTheyFail) {
    EXPECT_EQ(thrownBy([] { FileInputStream("/nowhere/x"); }), "/nowhere/x: No such file or directory");
    EXPECT_EQ(thrownBy([] { FileInputStream(-1).read(); }), "Bad file descriptor");
    FileOutputStream full("/dev/full", O_WRONLY);
    BufferedOutputStream buffered(&full, 16);
    buffered.write("text");
    EXPECT_EQ(thrownBy([&] { buffered.flush(); }), "No space left on device");
}

TEST(BufferedInputStream, givesTheSameBytesForEveryBlockSize) {
    const std::string text = numbered(2000);
    for (int bufferSize : {1, 7, 512, 4096}) {
        for (int chunk : {1, 3, 512}) {
            ChunkedInput inner(text, chunk);
            BufferedInputStream input(&inner, bufferSize);
            std::string all;
            char piece[100];
            for (int byte; (byte = input.read()) >= 0;) {
                all += static_cast<char>(byte);
                const int count = input.read(piece, 1 + byte % 100);
                all.append(piece, static_cast<std::size_t>(count));
            }
            EXPECT_EQ(all, text) << "buffer " << bufferSize << ", chunks of " << chunk;
        }
    }
}

TEST(BufferedInputStream, keepsTheMarkForItsLimit) {
    const std::string text = numbered(100);
    struct MarkCase {
        const char* why;
        int before, readLimit, readOn;
        bool holds;
    };
    const MarkCase cases[] = {
        {"the block moves down to the mark", 10, 12, 12, true},
        {"the block grows to the limit", 10, 60, 60, true},
        {"a limit below the block costs nothing before the block is full", 0, 1, 16, true},
        {"read past limit and block", 0, 16, 17, false},
    };
    for (const MarkCase& c : cases) {
        SCOPED_TRACE(c.why);
        ChunkedInput inner(text, 7);
        BufferedInputStream input(&inner, 16);
        EXPECT_EQ(thrownBy([&] { input.reset(); }), "No mark was set");
        input.skip(c.before);
        input.mark(c.readLimit);
        EXPECT_EQ(input.skip(c.readOn), c.readOn);
        EXPECT_EQ(thrownBy([&] { input.reset(); }), c.holds ? "<nothing>" : "No mark was set");
        if (!c.holds) continue;
        std::string again;
        for (int byte; (byte = input.read()) >= 0;) again += static_cast<char>(byte);
        EXPECT_EQ(again, text.substr(static_cast<std::size_t>(c.before)));
    }
}

TEST(BufferedInputStream, readsLinesAcrossBlocks) {
    const std::string longLine(50, 'x');  // Longer than the block.
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"", {}},
        {"\n", {""}},
        {"one\ntwo\r\n\r\nthree", {"one", "two", "", "three"}},
        {"a\rb\r\r\nc\r", {"a\rb\r", "c\r"}},
        {longLine + "\ny", {longLine, "y"}},
    };
    for (const auto& [text, expected] : cases) {
        for (int bufferSize : {1, 3, 64}) {
            ChunkedInput inner(text, 64);
            BufferedInputStream input(&inner, bufferSize);
            std::vector<std::string> lines;
            for (std::string line; input.readLine(line);) lines.push_back(line);
            EXPECT_EQ(lines, expected) << bufferSize;
        }
    }
}

TEST(BufferedOutputStream, handsOnEveryByteInOrder) {
    const std::string text = numbered(3000);
    for (int bufferSize : {1, 7, 512, 4096}) {
        StringOutputStream collected;
        BufferedOutputStream output(&collected, bufferSize);
        for (std::size_t next = 0, count = 0; next < text.size(); next += count) {
            count = std::min((count * 7 + 1) % 600, text.size() - next);
            output.write(text.data() + next, static_cast<int>(count));
        }
        output.close();
        EXPECT_EQ(collected.getString(), text) << bufferSize;
        EXPECT_EQ(thrownBy([&] { collected.write('x'); }), kClosed);
    }
}

}  // namespace
}  // namespace ZOV_SPACE
