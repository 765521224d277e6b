#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
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

// Endless zero bytes; remembers the block reads it was asked for.
class CountingInput : public InputStream {
public:
    int read(char* buf, int len) override {
        asked.push_back(len);
        std::fill_n(buf, len, '\0');
        return len;
    }
    using InputStream::read;

    std::vector<int> asked;
};

// A text in pieces of at most `chunk` bytes.
class ChunkedInput : public InputStream {
public:
    ChunkedInput(std::string text, int chunk) : _text(std::move(text)), _chunk(chunk) {}

    int available() override { return static_cast<int>(_text.size() - _next); }
    void close() override { closed = true; }
    int read() override { return _next < _text.size() ? static_cast<unsigned char>(_text[_next++]) : -1; }
    int read(char* buf, int len) override { return InputStream::read(buf, std::min(len, _chunk)); }

    bool closed = false;

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

TEST(InputStream, skipsThroughReadsOf512Bytes) {
    CountingInput input;
    EXPECT_EQ(input.skip(1000), 1000);
    EXPECT_EQ(input.asked, (std::vector<int>{512, 488}));
    EXPECT_EQ(input.skip(-1), 0);
    EXPECT_EQ(ChunkedInput("12345", 2).skip(1000), 5);
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
    char byte;
    std::string line;
    std::vector<std::function<void()>> calls{[&] { bufferedInput.readLine(line); }};
    for (InputStream* input : {static_cast<InputStream*>(&fileInput), static_cast<InputStream*>(&bufferedInput)}) {
        input->close();
        calls.insert(calls.end(), {[=] { input->available(); }, [=] { input->close(); }, [=] { input->read(); },
                                   [=, &byte] { input->read(&byte, 1); }, [=] { input->skip(0); },
                                   [=] { input->markSupported(); }, [=] { input->mark(1); }, [=] { input->reset(); }});
    }
    for (OutputStream* output :
         {static_cast<OutputStream*>(&fileOutput), static_cast<OutputStream*>(&bufferedOutput)}) {
        output->close();
        calls.insert(calls.end(), {[=] { output->close(); }, [=] { output->flush(); }, [=] { output->write('x'); },
                                   [=] { output->write(""); }, [=] { output->write("x", 1); }});
    }
    for (std::size_t i = 0; i < calls.size(); ++i) EXPECT_EQ(thrownBy(calls[i]), kClosed) << "call " << i;
    EXPECT_EQ(unitThrownBy([&] { fileInput.read(); }), "../../../modules/common-stl/include/io/InputStream");
    EXPECT_EQ(unitThrownBy([&] { fileOutput.flush(); }), "../../../modules/common-stl/include/io/OutputStream");
    EXPECT_TRUE(chunked.closed);
    EXPECT_NE(::fcntl(file.fd(), F_GETFD), -1) << "a wrapped descriptor stays its owner's";
}

TEST(FileInputStream, readsToTheEndAndReturnsToTheMark) {
    TempFile file("abcdef");
    FileInputStream input(file.path());
    char bytes[8];
    EXPECT_TRUE(input.markSupported());
    EXPECT_EQ(thrownBy([&] { input.reset(); }), "No mark set");
    EXPECT_EQ(input.read(), 'a');
    input.mark(1);
    EXPECT_EQ(input.skip(2), 2);
    EXPECT_EQ(input.available(), 3);
    EXPECT_EQ(input.read(bytes, 8), 3);
    EXPECT_EQ(input.read(bytes, 8), 0);
    EXPECT_EQ(input.read(), -1);
    input.reset();
    EXPECT_EQ(input.read(), 'b');
}

TEST(FileInputStream, cannotMarkAPipe) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    OwnFd readEnd(ends[0]);
    OwnFd writeEnd(ends[1]);
    FileInputStream input(readEnd.get());
    FileOutputStream(writeEnd.get()).write("abc");
    EXPECT_EQ(input.available(), 3);
    EXPECT_FALSE(input.markSupported());
    EXPECT_EQ(thrownBy([&] { input.mark(1); }), "File::mark:Illegal seek, possibly non-seekable fd");
}

TEST(FileStreams, nameThePathOrTheSystemErrorWhenTheyFail) {
    EXPECT_EQ(thrownBy([] { FileInputStream("/nowhere/x"); }), "/nowhere/x: No such file or directory");
    EXPECT_EQ(thrownBy([] { FileOutputStream("/nowhere/x"); }), "/nowhere/x: No such file or directory");
    const char* const none = nullptr;
    EXPECT_EQ(thrownBy([&] { FileInputStream{none}; }), ": No such file or directory");
    EXPECT_EQ(thrownBy([&] { FileOutputStream{none}; }), ": No such file or directory");
    char byte;
    const std::function<void()> calls[] = {
        [&] { FileInputStream(-1).read(); }, [&] { FileInputStream(-1).read(&byte, 1); },
        [] { FileInputStream(-1).markSupported(); }, [] { FileOutputStream(-1).write('x'); }};
    for (const auto& call : calls) EXPECT_EQ(thrownBy(call), "Bad file descriptor");
    EXPECT_EQ(unitThrownBy(calls[0]), "io/InputStream");
    FileOutputStream full("/dev/full", O_WRONLY);
    EXPECT_EQ(thrownBy([&] { full.write("text"); }), "No space left on device");
    BufferedOutputStream buffered(&full, 16);
    buffered.write("text");
    EXPECT_EQ(thrownBy([&] { buffered.flush(); }), "No space left on device");
}

TEST(FileOutputStream, replacesAFileOrAppendsAsTheFlagsSay) {
    TempFile file("old content");
    FileOutputStream(file.path()).write("new");
    EXPECT_EQ(file.content(), "new");
    FileOutputStream(file.path(), O_WRONLY | O_APPEND).write('!');
    EXPECT_EQ(file.content(), "new!");
}

TEST(BufferedInputStream, givesTheSameBytesForEveryBlockSize) {
    for (int size : {0, 1, 511, 512, 513, 2000}) {
        for (int bufferSize : {1, 7, 512, 4096}) {
            for (int chunk : {1, 3, 512}) {
                SCOPED_TRACE(testing::Message() << size << " bytes, buffer " << bufferSize << ", chunks of " << chunk);
                const std::string text = numbered(size);
                ChunkedInput inner(text, chunk);
                BufferedInputStream input(&inner, bufferSize);
                std::string all;
                char piece[100];
                for (int turn = 0;; ++turn) {
                    const int byte = turn % 3 == 0 ? input.read() : -1;
                    if (byte >= 0) all += static_cast<char>(byte);
                    const int count = input.read(piece, 1 + turn % 100);
                    if (count == 0) break;
                    all.append(piece, static_cast<std::size_t>(count));
                }
                EXPECT_EQ(all, text);
            }
        }
    }
}

TEST(BufferedInputStream, keepsTheMarkForItsLimit) {
    const std::string text = numbered(100);
    struct MarkCase {
        const char* why;
        int bufferSize, before, readLimit, readOn;
        bool holds;
    };
    const MarkCase cases[] = {
        {"inside the first block", 16, 3, 5, 5, true},
        {"the block moves down to the mark", 16, 10, 12, 12, true},
        {"the block grows to the limit", 16, 10, 60, 60, true},
        {"a limit below the block costs nothing before the block is full", 16, 0, 1, 16, true},
        {"read past limit and block", 16, 0, 16, 17, false},
    };
    for (const MarkCase& c : cases) {
        SCOPED_TRACE(c.why);
        ChunkedInput inner(text, 7);
        BufferedInputStream input(&inner, c.bufferSize);
        EXPECT_EQ(thrownBy([&] { input.reset(); }), "No mark was set");
        input.skip(c.before);
        input.mark(c.readLimit);
        EXPECT_EQ(input.skip(c.readOn), c.readOn);
        if (!c.holds) {
            EXPECT_EQ(thrownBy([&] { input.reset(); }), "No mark was set");
            continue;
        }
        input.reset();
        std::string again;
        for (int byte; (byte = input.read()) >= 0;) again += static_cast<char>(byte);
        EXPECT_EQ(again, text.substr(static_cast<std::size_t>(c.before)));
    }
}

TEST(BufferedInputStream, readsLinesAcrossBlocks) {
    struct LineCase {
        const char* why;
        std::string text;
        std::vector<std::string> lines;
    };
    const LineCase cases[] = {
        {"nothing", "", {}},
        {"an empty line is a line", "\n", {""}},
        {"both endings", "one\ntwo\r\n\r\nthree\n", {"one", "two", "", "three"}},
        {"the last line may lack its end", "one\ntwo", {"one", "two"}},
        {"a carriage return elsewhere is text", "a\rb\r\r\nc\r", {"a\rb\r", "c\r"}},
        {"longer than the block", std::string(50, 'x') + "\ny", {std::string(50, 'x'), "y"}},
    };
    for (const LineCase& c : cases) {
        for (int bufferSize : {1, 3, 64}) {
            SCOPED_TRACE(c.why);
            ChunkedInput inner(c.text, 64);
            BufferedInputStream input(&inner, bufferSize);
            std::vector<std::string> lines;
            for (std::string line; input.readLine(line);) lines.push_back(line);
            EXPECT_EQ(lines, c.lines);
        }
    }
}

TEST(StringOutputStream, saysOutOfMemoryForACapacityThatNoStringHas) {
    if (sizeof(void*) > 4) GTEST_SKIP() << "strings of that size exist";
    EXPECT_EQ(thrownBy<OutOfMemoryException>([] { StringOutputStream{INT_MAX}; }), "Out of memory");
}

TEST(BufferedOutputStream, handsOnEveryByteInOrder) {
    const std::string text = numbered(3000);
    for (int bufferSize : {1, 7, 512, 4096}) {
        StringOutputStream collected;
        BufferedOutputStream output(&collected, bufferSize);
        std::size_t next = 0;
        for (int turn = 0; next < text.size(); ++turn) {
            const std::size_t count =
                std::min<std::size_t>(static_cast<std::size_t>(turn) * 7 % 600, text.size() - next);
            EXPECT_EQ(output.write(text.data() + next, static_cast<int>(count)), static_cast<int>(count));
            next += count;
            if (next < text.size()) output.write(text[next++]);
            if (turn == 3) {
                output.flush();
                EXPECT_EQ(collected.getString(), text.substr(0, next));
            }
        }
        output.close();
        EXPECT_EQ(collected.getString(), text) << bufferSize;
        EXPECT_EQ(thrownBy([&] { collected.write('x'); }), kClosed);
    }
}

}  // namespace
}  // namespace ZOV_SPACE
