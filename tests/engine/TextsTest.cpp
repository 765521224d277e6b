// What the engine says to hosts in so many words: the texts of its codes, and of the spam rule.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include "ResultText.h"
#include "SpamRule.h"
#include "support/CapturedLog.h"
#include "voleeng.h"

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
    const std::string kTooShort = "[pattern_assistant:899] checkSpam, length of attachment must more than 9.";
    const std::string kOtherShape =
        "[pattern_assistant:895] checkSpam, attachment must contain 5 digtal number and '.rar' suffix.";
    const std::tuple<const char*, bool, std::string> cases[] = {
        {"bugfix-12345.rar", true, ""},
        {"removal-00000.rar", true, ""},
        {"Patch-99999.RAR", true, ""},
        {"hotfix-00000.Rar", true, ""},
        {"12345.rar", false, kTooShort},
        {"a12345.rar", false, ""},
        {"update-12345.rar", false, ""},
        {"xpatch-12345.rar", false, ""},
        {"patch-012345.rar", false, ""},
        {"patch-1234.rar", false, kOtherShape},
        {"patch-1234\xB2.rar", false, kOtherShape},
        {"patch-12345-rar", false, kOtherShape},
        {"hotfix-00000.rar.txt", false, kOtherShape},
    };
    for (const auto& [name, spam, line] : cases) {
        CapturedLog log;
        std::string virus = "untouched";
        EXPECT_EQ(matchSpam("", name, virus), spam) << name;
        EXPECT_EQ(virus, spam ? "W32.Email.W.Zhelatin.dj" : "untouched") << name;
        EXPECT_EQ(log.lines(), std::vector<std::string>(line.empty() ? 0 : 1, line)) << name;
    }
    std::string virus;
    EXPECT_FALSE(matchSpam("any", nullptr, virus) || matchSpam(nullptr, "patch-12345.rar", virus));
}

}  // namespace
