#include "Normalize.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <optional>
#include <string>

#include "io/MemBufferBase.h"
#include "io/OwnFd.h"
#include "support/CapturedLog.h"

namespace {

using ZOV_SPACE::IOBuffer;
using ZOV_SPACE::SmartBufferBase;

using Text = std::optional<std::string>;  // Nothing: it was not taken for a text.

Text normalized(ZOV_SPACE::BufferBase& content) {
    IOBuffer input(&content);
    input.seek(SEEK_SET, 5);  // Wherever it stands.
    const auto result = normalize(&input);
    if (!result) return std::nullopt;
    std::string text(static_cast<std::size_t>(result->getSize()), '\0');
    EXPECT_EQ(result->read(0, text.data(), static_cast<int>(text.size())), result->getSize());
    return text;
}

// The same from memory, from memory in two pieces, and from a file.
Text normalized(const std::string& bytes) {
    const auto size = static_cast<int>(bytes.size());
    ZOV_SPACE::MemBufferBase whole(size);
    whole.append(bytes.data(), size);
    const Text text = normalized(whole);

    ZOV_SPACE::MemBufferBase pieces(1);
    pieces.append(bytes.data(), size / 2);
    pieces.append(bytes.data() + size / 2, size - size / 2);
    EXPECT_EQ(normalized(pieces), text);

    const ZOV_SPACE::OwnFd file(::memfd_create("text", MFD_CLOEXEC));
    EXPECT_EQ(::write(file.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    const auto view = SmartBufferBase::viewOf(file.get(), size);
    EXPECT_EQ(normalized(*view), text);
    return text;
}

TEST(Normalize, givesTheTrimmedLinesInLowerCase) {
    using namespace std::string_literals;
    const std::string x1023(1023, 'X');
    const std::string lower1023(1023, 'x');
    const std::string x64(64, 'x');
    const struct {
        const char* why;
        std::string text;
        Text normalized;
    } cases[] = {
        {"empty", "", ""},
        {"one line", "Hello World\n", "hello world\n"},
        {"no line feed at the end", "Hello", "hello\n"},
        {"indented", "\t  Hello \t\n", "hello\n"},
        {"blank lines", "\n \t\nA\n\n\r\nB\n\n", "a\nb\n"},
        {"only blank lines", " \n\t\n\r\n", ""},
        {"CR LF", "A\r\nB\r\n", "a\nb\n"},
        {"CR", "A\rB\r\rC", "a\nb\nc\n"},
        {"a CR before an LF stays within its line", "A\rB\nC\n", "a\rb\nc\n"},
        {"other control bytes stay", "A\x01\x7F\v\fB\n", "a\x01\x7F\v\fb\n"},
        {"NUL ends its line's text", "AB\0CD\nEF\n"s, "ab\nef\n"},
        {"NUL in front empties its line", "\0AB\nCD\n"s, "cd\n"},
        {"only NULs", std::string(100, '\0'), ""},
        {"1023 bytes", x1023 + "\nY\n", lower1023 + "\ny\n"},
        {"longer lines are cut", x1023 + "Y\nZ\n", lower1023 + "\ny\nz\n"},
        {"long blanks do not matter", std::string(3000, ' ') + "A\n", "a\n"},
        {"a CR within the first 1023 bytes ends a long line", "A\r" + x1023 + "\n", "a\n" + lower1023 + "\n"},
        {"first byte no text", "\x80\n", std::nullopt},
        {"64th byte no text", x64.substr(1) + "\xFF\n", std::nullopt},
        {"65th byte no text", x64 + "\xC4X\n", x64 + "\xC4x\n"},
        {"largest", std::string(65535, 'A') + "\n", Text("*")},
        {"too large", std::string(65536, 'A') + "\n", std::nullopt},
        {"too large and no text", std::string(65537, '\xFF'), std::nullopt},
    };
    for (const auto& c : cases) {
        Text expected = c.normalized;
        if (expected == "*") {  // 64 pieces of 1023 bytes and a rest, each a line.
            expected = "";
            for (std::size_t left = 65535, piece; left > 0; left -= piece) {
                piece = std::min<std::size_t>(left, 1023);
                *expected += std::string(piece, 'a') + "\n";
            }
        }
        EXPECT_EQ(normalized(c.text), expected) << c.why;
    }
    EXPECT_EQ(normalize(nullptr), nullptr);
}

TEST(Normalize, saysWhyItGivesNothing) {
    {
        CapturedLog log;
        EXPECT_FALSE(normalized("\xFF"));
        EXPECT_EQ(log.lines()[0], "[pattern_assistant:1126] normalize, file is not text file");
    }
    // A file that has shrunk since.
    const ZOV_SPACE::OwnFd file(::memfd_create("text", MFD_CLOEXEC));
    const auto view = SmartBufferBase::viewOf(file.get(), 10);
    CapturedLog log(CapturedLog::kErrors);
    EXPECT_FALSE(normalized(*view));
    EXPECT_EQ(log.lines(), std::vector<std::string>{"fail to read 10 bytes from file"});
    EXPECT_EQ(LogLineNo, 1112);
}

}  // namespace
