#include "SpamRule.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/CapturedLog.h"

namespace {

const std::string kTooShort = "[pattern_assistant:899] checkSpam, length of attachment must more than 9.";
const std::string kOtherShape =
    "[pattern_assistant:895] checkSpam, attachment must contain 5 digtal number and '.rar' suffix.";

TEST(SpamRule, judgesTheAttachmentsName) {
    const struct {
        const char* name;
        bool spam;
        std::string line;
    } cases[] = {
        {"bugfix-12345.rar", true, ""},
        {"removal-00000.rar", true, ""},
        {"patch-99999.rar", true, ""},
        {"hotfix-00000.Rar", true, ""},
        {"Patch-12345.RAR", true, ""},
        {"", false, kTooShort},
        {"12345.rar", false, kTooShort},
        {"a12345.rar", false, ""},
        {"update-12345.rar", false, ""},
        {"xpatch-12345.rar", false, ""},
        {"patch-x12345.rar", false, ""},
        {"patch-012345.rar", false, ""},
        {"patch12345.rar", false, ""},
        {"patch-1234.rar", false, kOtherShape},
        {"patch-1234a.rar", false, kOtherShape},
        {"patch-1234\xB2.rar", false, kOtherShape},
        {"patch-12345.ra", false, kOtherShape},
        {"patch-12345-rar", false, kOtherShape},
        {"hotfix-00000.rar.txt", false, kOtherShape},
    };
    for (const auto& c : cases) {
        for (const char* subject : {"any", ""}) {
            CapturedLog log;
            std::string name = "untouched";
            EXPECT_EQ(matchSpam(subject, c.name, name), c.spam) << c.name;
            EXPECT_EQ(name, c.spam ? "W32.Email.W.Zhelatin.dj" : "untouched") << c.name;
            EXPECT_EQ(log.lines(), c.line.empty() ? std::vector<std::string>{} : std::vector{c.line}) << c.name;
        }
    }
    std::string name = "untouched";
    EXPECT_FALSE(matchSpam("any", nullptr, name));
    EXPECT_FALSE(matchSpam(nullptr, "patch-12345.rar", name));
    EXPECT_EQ(name, "untouched");
}

}  // namespace
