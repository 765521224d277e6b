#include "VoleOptions.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "support/CapturedLog.h"
#include "support/TempDir.h"

namespace {

constexpr OptionValues kDefaults{100, 250, 50, 50, 1048576};

std::vector<int> listed(const OptionValues& v) {
    return {v.maxEntries, v.maxRatio, v.maxLevelEntries, v.maxDepth, v.maxSize};
}

class VoleOptionsTest : public testing::Test {
protected:
    VoleOptionsTest() { VoleOptions::set(kDefaults); }
    ~VoleOptionsTest() override { VoleOptions::set(kDefaults); }

    TempDir dir;
};

TEST_F(VoleOptionsTest, namesItsDefaults) {
    EXPECT_EQ(listed({VoleOptions::DefaultMaxEntries, VoleOptions::DefaultMaxRatio, VoleOptions::DefaultMaxLevelEntries,
                      VoleOptions::DefaultMaxDepth, VoleOptions::DefaultMaxSize}),
              listed(kDefaults));
}

TEST_F(VoleOptionsTest, readsWhatIsSetAndKeepsTheRest) {
    const struct {
        const char* why;
        const char* content;
        OptionValues values;
    } cases[] = {
        {"nothing", "", kDefaults},
        {"all, in another order",
         "MaxUnarSize=5\nMaxUnarDepth=4\nMaxUnarLevelEntries=3\nMaxUnarRatio=2\nMaxUnarEntries=1\n",
         {1, 2, 3, 4, 5}},
        {"comment behind a value", "MaxUnarSize = 2000000 # about two megabytes\n", {100, 250, 50, 50, 2000000}},
        {"empty value", "MaxUnarEntries =\nMaxUnarEntries = 7\n", kDefaults},
        {"first of two", "MaxUnarDepth=3\nMaxUnarDepth=x\n", {100, 250, 50, 3, 1048576}},
        {"longer key", "MaxUnarDepthX=3\n", kDefaults},
        {"commented out", "# MaxUnarDepth = 3\n", kDefaults},
        {"zero", "MaxUnarRatio=0\nMaxUnarDepth=000\n", {100, 0, 50, 0, 1048576}},
        {"leading zeros are not octal", "MaxUnarRatio=010\n", {100, 10, 50, 50, 1048576}},
        {"saturates",
         "MaxUnarSize=2147483648\nMaxUnarRatio=99999999999999999999\n",
         {100, 2147483647, 50, 50, 2147483647}},
        {"largest", "MaxUnarSize=2147483647\n", {100, 250, 50, 50, 2147483647}},
    };
    for (const auto& c : cases) {
        VoleOptions::set(kDefaults);
        EXPECT_EQ(readOptions(dir.write("o.ini", c.content)), 0) << c.why;
        EXPECT_EQ(listed(VoleOptions::get()), listed(c.values)) << c.why;
    }
}

TEST_F(VoleOptionsTest, reportsTheValuesInForce) {
    VoleOptions::set({9, 8, 7, 6, 5});
    CapturedLog log;
    EXPECT_EQ(readOptions(dir.write("o.ini", "MaxUnarRatio=1\n")), 0);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "[pattern_assistant:284] MaxUnarEntries      = 9.",
                               "[pattern_assistant:285] MaxUnarRatio        = 1.",
                               "[pattern_assistant:286] MaxUnarLevelEntries = 7.",
                               "[pattern_assistant:287] MaxUnarDepth        = 6.",
                               "[pattern_assistant:288] MaxUnarSize         = 5 bytes.",
                           }));
}

TEST_F(VoleOptionsTest, anIllegalValueLeavesAllAsTheyWere) {
    const struct {
        const char* setting;
        const char* message;
        int line;
    } cases[] = {
        {"MaxUnarEntries=-1", "MaxUnarEntries's Value [-1] is illegal.", 220},
        {"MaxUnarRatio=abc", "MaxUnarRadio's Value [abc] is illegal.", 232},
        {"MaxUnarLevelEntries=1.5", "MaxUnarLevelEntries's Value [1.5] is illegal.", 244},
        {"MaxUnarDepth=1 2", "MaxUnarDepth's Value [1 2] is illegal.", 256},
        {"MaxUnarSize=+1", "MaxUnarSize's Value [+1] is illegal.", 268},
        {"MaxUnarSize=0x10", "MaxUnarSize's Value [0x10] is illegal.", 268},
        {"MaxUnarSize=%s%n", "MaxUnarSize's Value [%s%n] is illegal.", 268},
    };
    for (const auto& c : cases) {
        VoleOptions::set({9, 8, 7, 6, 5});
        CapturedLog log;
        const std::string valid = "MaxUnarEntries=1\nMaxUnarRatio=1\nMaxUnarLevelEntries=1\nMaxUnarDepth=1\n";
        EXPECT_EQ(readOptions(dir.write("o.ini", std::string(c.setting) + "\n" + valid)), -489) << c.setting;
        EXPECT_EQ(log.lines(), std::vector<std::string>{c.message});
        EXPECT_EQ(LogLineNo, c.line) << c.setting;
        EXPECT_STREQ(LogFileName, "pattern_assistant");
        EXPECT_EQ(listed(VoleOptions::get()), (std::vector{9, 8, 7, 6, 5})) << c.setting;
    }
}

TEST_F(VoleOptionsTest, aFileThatCannotBeOpenedLeavesAllAsTheyWere) {
    std::filesystem::create_directory(dir / "folder.ini");
    ASSERT_EQ(::mkfifo((dir / "fifo.ini").c_str(), 0600), 0);
    for (const char* name : {"missing.ini", "folder.ini", "fifo.ini"}) {
        CapturedLog log;
        const std::string path = (dir / name).string();
        EXPECT_EQ(readOptions(path), -490) << name;
        EXPECT_EQ(log.lines(), std::vector<std::string>{"Cannot open option file [" + path + "]\n"});
        EXPECT_EQ(LogLineNo, 209);
        EXPECT_EQ(listed(VoleOptions::get()), listed(kDefaults)) << name;
    }
}

}  // namespace
