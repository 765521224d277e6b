#include "Normalize.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <tuple>

#include "support/CapturedLog.h"
#include "support/Content.h"
#include "support/StringBuffer.h"

namespace {

using ZOV_SPACE::IOBuffer;
using ZOV_SPACE::SmartBufferBase;

using Text = std::optional<std::string>;  // Nothing: it was not taken for a text.

Text normalized(ZOV_SPACE::BufferBase& content) {
    IOBuffer input(&content);
    input.seek(SEEK_SET, 5);  // Wherever it stands.
    const auto result = normalize(&input);
    return result ? Text(ZOV_SPACE::contentOf(*result)) : std::nullopt;
}

// The same from memory, from memory in pieces, and from a file.
Text normalized(const std::string& bytes) {
    ZOV_SPACE::StringBuffer whole(bytes);
    ZOV_SPACE::MemBufferBase pieces(1);
    for (std::size_t at = 0; at < bytes.size(); at += 500) {
        pieces.append(bytes.data() + at, static_cast<int>(std::min<std::size_t>(500, bytes.size() - at)));
    }
    const Text text = normalized(whole);
    EXPECT_EQ(normalized(pieces), text);
    const ZOV_SPACE::OwnFd file = ZOV_SPACE::fileOf(bytes);
    EXPECT_EQ(normalized(*SmartBufferBase::viewOf(file.get(), static_cast<long>(bytes.size()))), text);
    return text;
}

TEST(Normalize, givesTheTrimmedLinesInLowerCase) {
    using namespace std::string_literals;
    const std::string x1023(1023, 'x');
    std::string largest = std::string(64, 'x') + "\n";  // The last line of 65536 bytes.
    for (int i = 0; i < 64; ++i) largest = x1023 + "\n" + largest;
    const std::tuple<const char*, std::string, Text> cases[] = {
        {"empty", "", ""},
        {"blanks, no line feed at the end", "\t  Hello World \t", "hello world\n"},
        {"blank lines", "\n \t\nA\n\n\r\nB\n\n", "a\nb\n"},
        {"CR", "A\rB\r\rC", "a\nb\nc\n"},
        {"a CR before an LF stays within its line", "A\rB\nC\r\n", "a\rb\nc\n"},
        {"other control bytes stay", "A\x01\x7F\v\fB\n", "a\x01\x7F\v\fb\n"},
        {"NUL ends its line's text", "AB\0CD\nEF\n\0G\n"s, "ab\nef\n"},
        {"1023 bytes", x1023 + "\nY\n", x1023 + "\ny\n"},
        {"longer lines are cut", x1023 + "Y\nZ\n", x1023 + "\ny\nz\n"},
        {"long blanks do not matter", std::string(3000, ' ') + "A\n", "a\n"},
        {"a CR within the first 1023 bytes ends a long line", "A\r" + x1023 + "\n", "a\n" + x1023 + "\n"},
        {"64th byte no text", x1023.substr(0, 63) + "\xFF\n", std::nullopt},
        {"65th byte no text", x1023.substr(0, 64) + "\xC4X\n", x1023.substr(0, 64) + "\xC4x\n"},
        {"largest", std::string(65536, 'X'), largest},
        {"too large", std::string(65537, 'X'), std::nullopt},
    };
    for (const auto& [why, text, expected] : cases) EXPECT_EQ(normalized(text), expected) << why;
    EXPECT_EQ(normalize(nullptr), nullptr);
}

TEST(Normalize, saysWhyItGivesNothing) {
    CapturedLog log;
    EXPECT_FALSE(normalized("\xFF"));
    EXPECT_EQ(log.lines(true)[0], "[pattern_assistant:1126] normalize, file is not text file");
    // A file that has shrunk since.
    const ZOV_SPACE::OwnFd file = ZOV_SPACE::fileOf("");
    EXPECT_FALSE(normalized(*SmartBufferBase::viewOf(file.get(), 10)));
    EXPECT_EQ(log.count("fail to read 10 bytes from file"), 1U);
    EXPECT_EQ(LogLineNo, 1112);
}

}  // namespace
