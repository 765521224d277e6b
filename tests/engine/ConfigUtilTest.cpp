#include "ConfigUtil.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using OpenFile = std::unique_ptr<std::FILE, CloseFile>;

OpenFile fileWith(const std::string& content) {
    OpenFile file(std::tmpfile());
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
        {"plain", "Key=3\n", "3"},
        {"no newline", "Key=3", "3"},
        {"blanks everywhere", " \tKey \t= \t3 \t\r\n", "3"},
        {"blanks within the value", "Key = a b\n", "a b"},
        {"comment behind", "Key = 3 # three\n", "3"},
        {"other comment behind", "Key = 3;three\n", "3"},
        {"both", "Key = 3 ; # three\n", "3"},
        {"an equals sign in the value", "Key = a=b\n", "a=b"},
        {"empty", "Key =\n", ""},
        {"empty but for a comment", "Key = # 3\n", ""},
        {"the first of two", "Key=1\nKey=2\n", "1"},
        {"an empty one first", "Key=\nKey=2\n", ""},
        {"behind other lines", "\n \n# Key=1\n;Key=2\n [Section]\nOther=Key\nKey=3\n", "3"},
        {"longer key", "KeyX=3\n", none},
        {"longer key first", "Keys=1\nKey=3\n", "3"},
        {"other case", "key=3\n", none},
        {"no equals sign", "Key 3\n", none},
        {"text before the equals sign", "Key x = 3\n", none},
        {"commented out", " # Key=3\n", none},
        {"empty file", "", none},
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

TEST(ConfigUtil, fillsTheValuesRoomExactly) {
    const OpenFile file = fileWith("Key=" + std::string(1015, 'v') + "\n");
    for (const int size : {0, 1, 5, 1015, 1024, 5000}) {
        std::vector<char> value(5001, '?');
        ASSERT_EQ(ConfigUtil().QueryListValue(file.get(), "Key", value.data(), size, 0), 0);
        const std::size_t room = static_cast<std::size_t>(std::min(size, 1024));
        const std::size_t length = std::min<std::size_t>(room, 1015);
        std::vector<char> expected(5001, '?');
        std::fill_n(expected.begin(), length, 'v');
        std::fill(expected.begin() + static_cast<std::ptrdiff_t>(length),
                  expected.begin() + static_cast<std::ptrdiff_t>(room + 1), '\0');
        EXPECT_EQ(value, expected) << size;
    }
    char untouched = '?';
    EXPECT_EQ(ConfigUtil().QueryListValue(file.get(), "Key", &untouched, -1, 0), -1);
    EXPECT_EQ(untouched, '?');
}

TEST(ConfigUtil, goesOnFromTheFilesPositionOnRequest) {
    const OpenFile file = fileWith("Key=1\nKey=2\n");
    char value[8] = "";
    const auto query = [&](int keepPosition) {
        return ConfigUtil().QueryListValue(file.get(), "Key", value, 1, keepPosition) == 0 ? std::string(value) : "-";
    };
    EXPECT_EQ(query(1), "1");
    EXPECT_EQ(query(1), "2");
    EXPECT_EQ(query(1), "-");
    EXPECT_EQ(query(0), "1");
}

}  // namespace
