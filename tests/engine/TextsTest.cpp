// Texts in and out: those of the engine's codes, the spam rule's, and what normalizing makes of a sample.
#include <gtest/gtest.h>
#include <regex>

#include <map>

#include "Normalize.h"
#include "ResultText.h"
#include "SpamRule.h"
#include "io/MemBufferBase.h"
#include "io/SmartBufferBase.h"
#include "support/CapturedLog.h"
#include "support/Content.h"
#include "support/GoldenRows.h"

namespace {

TEST(ResultText, everyCodeHasTheTextThatThePublicHeaderPromises) {
    std::map<int, std::string> promised;  // What the header writes as <dir> or <path> stands for the argument.
    const std::regex row("VOLE_\\w+ = (-\\d+), *// \"(.*?)\"");
    std::ifstream header(VOLE_PUBLIC_HEADER);
    for (std::string line; std::getline(header, line);) {
        if (std::smatch found; std::regex_search(line, found, row)) promised[std::stoi(found[1])] = found[2];
    }
    EXPECT_EQ(promised.size(), 14U);
    for (int code = -510; code <= 2; ++code) {
        for (const char* const argument : {"/p", static_cast<const char*>(nullptr)}) {
            const char* const null = code == VOLE_INVALID_DIRECTORY ? "" : "[NULL]";
            std::string message = "earlier";
            resultMessage(code, argument, message);
            EXPECT_EQ(message, std::regex_replace(promised[code], std::regex("<.*>"), argument ? argument : null))
                << code;
        }
    }
}

TEST(SpamRule, judgesTheAttachmentsName) {
    for (const auto& [why, name, answer] : goldenRows<3>(VOLE_ENGINE_ANSWERS, "spam")) {
        CapturedLog log;
        std::string virus = "(not)";
        const bool spam = matchSpam("", name.c_str(), virus);
        EXPECT_EQ(virus, spam ? "W32.Email.W.Zhelatin.dj" : "(not)") << why;
        std::string seen = spam ? "(spam)" : "";
        for (const std::string& line : log.lines()) seen += line;
        EXPECT_EQ(seen, answer) << why;
    }
    std::string virus;
    EXPECT_FALSE(matchSpam("any", nullptr, virus) || matchSpam(nullptr, "patch-12345.rar", virus));
}

std::string normalized(ZOV_SPACE::BufferBase& content) {
    ZOV_SPACE::IOBuffer input(&content);
    input.seek(SEEK_SET, 5);  // Wherever it stands.
    const auto result = normalize(&input);
    return result ? ZOV_SPACE::contentOf(*result) : "(none)";
}

// The same from memory, in pieces where it is longer, and from a file.
std::string normalized(const std::string& bytes) {
    ZOV_SPACE::MemBufferBase pieces(1);
    for (std::size_t at = 0; at < bytes.size(); at += 500) {
        pieces.append(bytes.data() + at, static_cast<int>(std::min<std::size_t>(500, bytes.size() - at)));
    }
    const std::string text = normalized(pieces);
    const ZOV_SPACE::OwnFd file = ZOV_SPACE::fileOf(bytes);
    EXPECT_EQ(normalized(*ZOV_SPACE::SmartBufferBase::viewOf(file.get(), static_cast<long>(bytes.size()))), text);
    return text;
}

TEST(Normalize, givesTheTrimmedLinesInLowerCaseOrSaysWhyNot) {
    for (const auto& [why, text, expected] : goldenRows<3>(VOLE_ENGINE_ANSWERS, "normal"))
        EXPECT_EQ(normalized(text), expected) << why;
    std::string largest = std::string(64, 'x') + "\n";  // The last line of 65536 bytes.
    for (int i = 0; i < 64; ++i) largest = std::string(1023, 'x') + "\n" + largest;
    EXPECT_EQ(normalized(std::string(65536, 'X')), largest);
    EXPECT_EQ(normalize(nullptr), nullptr);

    CapturedLog log;
    EXPECT_EQ(normalized("\xFF"), "(none)");
    EXPECT_EQ(log.lines(true)[0], "[pattern_assistant:1126] normalize, file is not text file");
    // A file that has shrunk since.
    const ZOV_SPACE::OwnFd file = ZOV_SPACE::fileOf("");
    EXPECT_EQ(normalized(*ZOV_SPACE::SmartBufferBase::viewOf(file.get(), 10)), "(none)");
    EXPECT_EQ(log.count("fail to read 10 bytes from file"), 1U);
    EXPECT_EQ(LogLineNo, 1112);
}

}  // namespace
