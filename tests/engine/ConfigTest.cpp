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
    const OpenFile file = fileWith("Key=" + std::string(1015, 'v') + "\nKey=2\n");
    for (const auto& [size, copied, zeros] :
         {std::tuple(0, 0U, 1U), {5, 5U, 1U}, {1024, 1015U, 10U}, {5000, 1015U, 10U}}) {
        std::string value(5001, '?');
        ASSERT_EQ(ConfigUtil().QueryListValue(file.get(), "Key", value.data(), size, 0), 0);
        const std::string filled = std::string(copied, 'v') + std::string(zeros, '\0');
        EXPECT_EQ(value, filled + std::string(5001 - filled.size(), '?')) << size;
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

TEST_F(OptionsTest, areReadAllOrNone) {
    ASSERT_EQ(::mkfifo((samples / "fifo").c_str(), 0600), 0);
    const std::string file = samples / "o.ini", missing = samples / "missing", fifo = samples / "fifo";
    const std::string folder = samples.path(), cannotOpen = "Cannot open option file [";
    const std::string valid = "\nMaxUnarEntries=1\nMaxUnarRatio=1\nMaxUnarLevelEntries=1\nMaxUnarDepth=1\n";
    const Numbers kept{9, 8, 7, 6, 5};
    constexpr int kMost = INT32_MAX;
    const std::tuple<const std::string&, std::string, int, Numbers, std::string, int> cases[] = {
        {file, "", 0, kept, "", 288},
        {file, "MaxUnarSize=5\nMaxUnarLevelEntries=3\nMaxUnarRatio=2\nMaxUnarEntries=1", 0, {1, 2, 3, 6, 5}, "", 288},
        {file, "MaxUnarEntries =\nMaxUnarSize = 2000000 # about two MB\n", 0, {9, 8, 7, 6, 2000000}, "", 288},
        {file, "MaxUnarDepth=0\nMaxUnarDepth=x\n", 0, {9, 8, 7, 0, 5}, "", 288},
        {file, "MaxUnarRatio=010\n", 0, {9, 10, 7, 6, 5}, "", 288},
        {file, "MaxUnarSize=2147483648\nMaxUnarRatio=99999999999999999999", 0, {9, kMost, 7, 6, kMost}, "", 288},
        {missing, valid, -490, kept, cannotOpen + missing + "]\n", 209},
        {fifo, valid, -490, kept, cannotOpen + fifo + "]\n", 209},
        {folder, valid, -490, kept, cannotOpen + folder + "]\n", 209},
        {file, "MaxUnarEntries=-1" + valid, -489, kept, "MaxUnarEntries's Value [-1] is illegal.", 220},
        {file, "MaxUnarRatio=abc" + valid, -489, kept, "MaxUnarRadio's Value [abc] is illegal.", 232},
        {file, "MaxUnarLevelEntries=1.5" + valid, -489, kept, "MaxUnarLevelEntries's Value [1.5] is illegal.", 244},
        {file, "MaxUnarDepth=1 2" + valid, -489, kept, "MaxUnarDepth's Value [1 2] is illegal.", 256},
        {file, "MaxUnarSize=%s%n" + valid, -489, kept, "MaxUnarSize's Value [%s%n] is illegal.", 268},
    };
    for (const auto& [path, content, result, values, text, line] : cases) {
        samples.write("o.ini", content);
        VoleOptions::set({9, 8, 7, 6, 5});
        CapturedLog log(CapturedLog::kErrors);
        EXPECT_EQ(readOptions(path), result) << path << content;
        const OptionValues v = VoleOptions::get();
        EXPECT_EQ((Numbers{v.maxEntries, v.maxRatio, v.maxLevelEntries, v.maxDepth, v.maxSize}), values) << content;
        EXPECT_EQ(log.lines(), std::vector(text.empty() ? 0 : 1, text)) << content;
        EXPECT_EQ(LogLineNo, line) << content;
    }
}

}  // namespace
