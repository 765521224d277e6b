// The option file: how its lines are read, and what the options accept.
#include <sys/stat.h>

#include <cstring>
#include <memory>
#include <tuple>
#include <vector>

#include "ConfigUtil.h"
#include "support/CapturedLog.h"
#include "support/EngineTest.h"

namespace {

using OpenFile = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;
using Numbers = std::vector<int>;

OpenFile fileWith(const std::string& content) {
    OpenFile file(std::tmpfile(), &std::fclose);
    std::fwrite(content.data(), 1, content.size(), file.get());
    std::rewind(file.get());
    return file;
}

TEST(ConfigUtil, findsTheFirstLineThatSetsTheKey) {
    const std::string none = "(untouched)";
    const std::tuple<const char*, std::string, std::string> cases[] = {
        {"no newline", "Key=3", "3"},
        {"blanks everywhere", " \tKey \t= \ta b \t\r\n", "a b"},
        {"comments behind", "Key = 3 ; # three\n", "3"},
        {"an equals sign in the value", "Key = a=b\n", "a=b"},
        {"an empty one first", "Key= # 1\nKey=2\n", ""},
        {"behind other lines", "\n \n# Key=1\n;Key=2\n [Section]\nOther=Key\nKeys=1\nkey=2\nKey 2\nKey=3\n", "3"},
        {"text before the equals sign", "Key x = 3\n", none},
        {"second piece of a long line", std::string(1023, 'x') + "Key=3\n", "3"},
        {"within the first piece of a long line", std::string(1000, 'x') + "Key=3\n", none},
        {"NUL ends its line", std::string("Key=3\0004\n", 8), "3"},
    };
    for (const auto& [why, content, expected] : cases) {
        const OpenFile file = fileWith(content);
        char value[ConfigUtil::kMaxValue + 1];
        std::strcpy(value, none.c_str());
        const int result = ConfigUtil().QueryListValue(file.get(), "Key", value, ConfigUtil::kMaxValue, 0);
        EXPECT_EQ(result, expected == none ? -1 : 0) << why;
        EXPECT_EQ(value, expected) << why;
    }
}

TEST(ConfigUtil, fillsTheValuesRoomExactlyAndGoesOnFromTheFilesPositionOnRequest) {
    const std::string longValue(1015, 'v');
    const OpenFile file = fileWith("Key=" + longValue + "\nKey=2\n");
    for (const std::size_t size : {0U, 5U, 1015U, 1024U, 5000U}) {
        std::string value(5001, '?'), expected = longValue.substr(0, size);
        ASSERT_EQ(ConfigUtil().QueryListValue(file.get(), "Key", value.data(), static_cast<int>(size), 0), 0);
        expected.resize(std::min<std::size_t>(size, 1024) + 1, '\0');
        expected.resize(5001, '?');
        EXPECT_EQ(value, expected) << size;
    }
    char value[2] = "?";
    EXPECT_EQ(ConfigUtil().QueryListValue(file.get(), "Key", value, -1, 0), -1);
    EXPECT_STREQ(value, "?");
    for (const char* const expected : {"v", "2"}) {
        EXPECT_EQ(ConfigUtil().QueryListValue(file.get(), "Key", value, 1, *expected == '2'), 0);
        EXPECT_STREQ(value, expected);
    }
    EXPECT_EQ(ConfigUtil().QueryListValue(file.get(), "Key", value, 1, 1), -1);
}

using OptionsTest = EngineTest;

// What a file leaves in force of others.
Numbers after(const std::string& path, int result, const OptionValues& before) {
    VoleOptions::set(before);
    EXPECT_EQ(readOptions(path), result);
    const OptionValues v = VoleOptions::get();
    return {v.maxEntries, v.maxRatio, v.maxLevelEntries, v.maxDepth, v.maxSize};
}

TEST_F(OptionsTest, areReadAndTheRestKept) {
    const std::pair<const char*, Numbers> cases[] = {
        {"", {100, 250, 50, 50, 1048576}},
        {"MaxUnarSize=5\nMaxUnarLevelEntries=3\nMaxUnarRatio=2\nMaxUnarEntries=1", {1, 2, 3, 50, 5}},
        {"MaxUnarEntries =\nMaxUnarSize = 2000000 # about two MB\n", {100, 250, 50, 50, 2000000}},
        {"MaxUnarDepth=0\nMaxUnarDepth=x\n", {100, 250, 50, 0, 1048576}},
        {"MaxUnarRatio=010\n", {100, 10, 50, 50, 1048576}},
        {"MaxUnarSize=2147483648\nMaxUnarRatio=99999999999999999999", {100, INT32_MAX, 50, 50, INT32_MAX}},
    };
    for (const auto& [content, values] : cases) {
        EXPECT_EQ(after(samples.write("o.ini", content), 0, kDefaultLimits), values) << content;
    }
}

TEST_F(OptionsTest, stayAsTheyWereWhenTheFileIsUnreadableOrAValueIllegal) {
    ASSERT_EQ(::mkfifo((samples / "fifo").c_str(), 0600), 0);
    const std::string missing = samples / "missing", fifo = samples / "fifo", file = samples / "o.ini";
    const struct {
        const std::string& path;
        const char* setting;
        std::string message;
        int line, result = -489;
    } cases[] = {
        {missing, "", "Cannot open option file [" + missing + "]\n", 209, -490},
        {fifo, "", "Cannot open option file [" + fifo + "]\n", 209, -490},
        {file, "MaxUnarEntries=-1", "MaxUnarEntries's Value [-1] is illegal.", 220},
        {file, "MaxUnarRatio=abc", "MaxUnarRadio's Value [abc] is illegal.", 232},
        {file, "MaxUnarLevelEntries=1.5", "MaxUnarLevelEntries's Value [1.5] is illegal.", 244},
        {file, "MaxUnarDepth=1 2", "MaxUnarDepth's Value [1 2] is illegal.", 256},
        {file, "MaxUnarSize=%s%n", "MaxUnarSize's Value [%s%n] is illegal.", 268},
    };
    const std::string valid = "\nMaxUnarEntries=1\nMaxUnarRatio=1\nMaxUnarLevelEntries=1\nMaxUnarDepth=1\n";
    for (const auto& c : cases) {
        samples.write("o.ini", c.setting + valid);
        CapturedLog log;
        EXPECT_EQ(after(c.path, c.result, {9, 8, 7, 6, 5}), (Numbers{9, 8, 7, 6, 5})) << c.message;
        EXPECT_EQ(log.lines(), std::vector{c.message});
        EXPECT_EQ(LogLineNo, c.line) << c.message;
    }
}

}  // namespace
