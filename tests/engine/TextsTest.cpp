// What the engine says to hosts in so many words: the texts of its codes, and of the spam rule.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "ResultText.h"
#include "SpamRule.h"
#include "support/CapturedLog.h"

namespace {

TEST(ResultText, everyCodeHasItsText) {
    // "*" stands for the argument.
    const std::map<int, std::string> expected = {
        {-500, "pattern for VoleEngine has been loaded."},
        {-499, "pattern for VoleEngine has not been loaded."},
        {-498, "* isn't a valid pattern dir path."},
        {-497, "pattern is in busy now, fail to free it."},
        {-496, "fail to allocate memory."},
        {-495, "pattern is empty."},
        {-494, "fail to load pattern file: *, maybe this pattern file format is not valid."},
        {-493, "fail to open file: *"},
        {-488, "fail to load pa list from *"},
        {-487, "PA list has been loaded."},
        {-486, "PA list has not been loaded"},
        {-485, "PA list is in busy now, fail to free it."},
        {-478, "heu-eng for VoleEngine has been loaded."},
        {-472, "No idle container."},
    };
    for (int code = -510; code <= 2; ++code) {
        for (const char* const argument : {"/p", static_cast<const char*>(nullptr)}) {
            std::string text = expected.contains(code) ? expected.at(code) : "";
            const std::string null = code == -498 ? "" : "[NULL]";
            if (const auto at = text.find('*'); at != text.npos) text.replace(at, 1, argument ? argument : null);
            std::string message = "earlier";
            resultMessage(code, argument, message);
            EXPECT_EQ(message, text) << code;
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
