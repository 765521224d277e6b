#include "SpamRule.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/CapturedLog.h"

namespace {

TEST(SpamRule, judgesTheAttachmentsName) {
    const std::string kTooShort = "[pattern_assistant:899] checkSpam, length of attachment must more than 9.";
    const std::string kOtherShape =
        "[pattern_assistant:895] checkSpam, attachment must contain 5 digtal number and '.rar' suffix.";
    const struct {
        const char* name;
        bool spam;
        std::string line;
    } cases[] = {
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
    for (const auto& c : cases) {
        CapturedLog log;
        std::string virus = "untouched";
        EXPECT_EQ(matchSpam("", c.name, virus), c.spam) << c.name;
        EXPECT_EQ(virus, c.spam ? "W32.Email.W.Zhelatin.dj" : "untouched") << c.name;
        EXPECT_EQ(log.lines(), c.line.empty() ? std::vector<std::string>{} : std::vector{c.line}) << c.name;
    }
    std::string virus;
    EXPECT_FALSE(matchSpam("any", nullptr, virus));
    EXPECT_FALSE(matchSpam(nullptr, "patch-12345.rar", virus));
}

}  // namespace
