#include "VoleOptions.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "support/CapturedLog.h"
#include "support/TempDir.h"

namespace {

using Numbers = std::vector<int>;

constexpr OptionValues kDefaults{VoleOptions::DefaultMaxEntries, VoleOptions::DefaultMaxRatio,
                                 VoleOptions::DefaultMaxLevelEntries, VoleOptions::DefaultMaxDepth,
                                 VoleOptions::DefaultMaxSize};

Numbers inForce() {
    const OptionValues v = VoleOptions::get();
    return {v.maxEntries, v.maxRatio, v.maxLevelEntries, v.maxDepth, v.maxSize};
}

class VoleOptionsTest : public testing::Test {
protected:
    ~VoleOptionsTest() override { VoleOptions::set(kDefaults); }

    TempDir dir;
};

TEST_F(VoleOptionsTest, readsWhatIsSetAndKeepsTheRest) {
    const struct {
        const char* why;
        const char* content;
        Numbers values;
    } cases[] = {
        {"nothing", "", {100, 250, 50, 50, 1048576}},
        {"all", "MaxUnarSize=5\nMaxUnarLevelEntries=3\nMaxUnarRatio=2\nMaxUnarEntries=1", {1, 2, 3, 50, 5}},
        {"comment, empty", "MaxUnarEntries =\nMaxUnarSize = 2000000 # about two MB\n", {100, 250, 50, 50, 2000000}},
        {"first of two", "MaxUnarDepth=0\nMaxUnarDepth=x\n", {100, 250, 50, 0, 1048576}},
        {"not octal", "MaxUnarRatio=010\n", {100, 10, 50, 50, 1048576}},
        {"large", "MaxUnarSize=2147483648\nMaxUnarRatio=99999999999999999999", {100, INT32_MAX, 50, 50, INT32_MAX}},
    };
    for (const auto& c : cases) {
        VoleOptions::set(kDefaults);
        EXPECT_EQ(readOptions(dir.write("o.ini", c.content)), 0) << c.why;
        EXPECT_EQ(inForce(), c.values) << c.why;
    }
}

TEST_F(VoleOptionsTest, anUnreadableFileOrAnIllegalValueLeavesAllAsTheyWere) {
    ASSERT_EQ(::mkfifo((dir / "fifo.ini").c_str(), 0600), 0);
    const auto cannotOpen = [&](const char* name) {
        return "Cannot open option file [" + (dir / name).string() + "]\n";
    };
    const struct {
        const char* name;
        const char* setting;
        std::string message;
        int line;
    } cases[] = {
        {"missing.ini", nullptr, cannotOpen("missing.ini"), 209},
        {"fifo.ini", nullptr, cannotOpen("fifo.ini"), 209},
        {"o.ini", "MaxUnarEntries=-1", "MaxUnarEntries's Value [-1] is illegal.", 220},
        {"o.ini", "MaxUnarRatio=abc", "MaxUnarRadio's Value [abc] is illegal.", 232},
        {"o.ini", "MaxUnarLevelEntries=1.5", "MaxUnarLevelEntries's Value [1.5] is illegal.", 244},
        {"o.ini", "MaxUnarDepth=1 2", "MaxUnarDepth's Value [1 2] is illegal.", 256},
        {"o.ini", "MaxUnarSize=%s%n", "MaxUnarSize's Value [%s%n] is illegal.", 268},
    };
    for (const auto& c : cases) {
        VoleOptions::set({9, 8, 7, 6, 5});
        const std::string valid = "\nMaxUnarEntries=1\nMaxUnarRatio=1\nMaxUnarLevelEntries=1\nMaxUnarDepth=1\n";
        if (c.setting) dir.write(c.name, c.setting + valid);
        CapturedLog log;
        EXPECT_EQ(readOptions((dir / c.name).string()), c.setting ? -489 : -490) << c.message;
        EXPECT_EQ(log.lines(), std::vector{c.message});
        EXPECT_EQ(LogLineNo, c.line) << c.message;
        EXPECT_EQ(inForce(), (Numbers{9, 8, 7, 6, 5})) << c.message;
    }
}

}  // namespace
