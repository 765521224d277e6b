#include "ConfigUtil.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

using OpenFile = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

OpenFile fileWith(const std::string& content) {
    OpenFile file(std::tmpfile(), &std::fclose);
    std::fwrite(content.data(), 1, content.size(), file.get());
    std::rewind(file.get());
    return file;
}

TEST(ConfigUtil, findsTheFirstLineThatSetsTheKey) {
    const std::string none = "(untouched)";
    const struct {
        const char* why;
        std::string content;
        std::string value;
    } cases[] = {
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
    for (const auto& c : cases) {
        const OpenFile file = fileWith(c.content);
        char value[ConfigUtil::kMaxValue + 1];
        std::strcpy(value, none.c_str());
        const int result = ConfigUtil().QueryListValue(file.get(), "Key", value, ConfigUtil::kMaxValue, 0);
        EXPECT_EQ(result, c.value == none ? -1 : 0) << c.why;
        EXPECT_EQ(value, c.value) << c.why;
    }
}

TEST(ConfigUtil, fillsTheValuesRoomExactlyAndGoesOnFromTheFilesPositionOnRequest) {
    const std::string longValue(1015, 'v');
    const OpenFile file = fileWith("Key=" + longValue + "\nKey=2\n");
    for (const std::size_t size : {0U, 5U, 1015U, 1024U, 5000U}) {
        std::string value(5001, '?');
        ASSERT_EQ(ConfigUtil().QueryListValue(file.get(), "Key", value.data(), static_cast<int>(size), 0), 0);
        std::string expected = longValue.substr(0, size);
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

}  // namespace
