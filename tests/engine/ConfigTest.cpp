// What the engine is configured with: the option file, and the lists file.
#include <sys/stat.h>

#include <memory>

#include "ConfigUtil.h"
#include "PatternLoader.h"
#include "VirusList.h"
#include "support/CapturedLog.h"
#include "support/EngineTest.h"
#include "support/GoldenRows.h"

namespace {

using OpenFile = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

OpenFile fileWith(const std::string& content) {
    OpenFile file(std::tmpfile(), &std::fclose);
    std::fwrite(content.data(), 1, content.size(), file.get());
    return file;
}

TEST(ConfigUtil, findsTheFirstLineThatSetsTheKey) {
    for (const auto& [why, content, expected] : goldenRows<3>(VOLE_ENGINE_ANSWERS, "key")) {
        const OpenFile file = fileWith(content);
        char value[ConfigUtil::kMaxValue + 1] = "(untouched)";
        const bool untouched = expected == value;
        const int result = ConfigUtil().QueryListValue(file.get(), "Key", value, ConfigUtil::kMaxValue, 0);
        EXPECT_EQ(result, untouched ? -1 : 0) << why;
        EXPECT_EQ(value, expected) << why;
    }
}

TEST(ConfigUtil, fillsTheValuesRoomExactlyAndGoesOnFromTheFilesPositionOnRequest) {
    const OpenFile file = fileWith("Key=" + std::string(1015, 'v') + "\nKey=2\n");
    for (const auto& [size, copied, zeros] : {std::tuple(0, 0U, 1U), {5, 5U, 1U}, {5000, 1015U, 10U}}) {
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
    std::filesystem::create_directory(samples / "folder");
    for (const auto& [file, content, result, values, text, line] : goldenRows<6>(VOLE_ENGINE_ANSWERS, "options")) {
        SCOPED_TRACE(content);
        samples.write("o.ini", content);
        VoleOptions::set({9, 8, 7, 6, 5});
        CapturedLog log(CapturedLog::kErrors);
        EXPECT_EQ(readOptions(samples / file), std::stoi(result));
        const OptionValues v = VoleOptions::get();
        std::ostringstream read;
        read << v.maxEntries << " " << v.maxRatio << " " << v.maxLevelEntries << " " << v.maxDepth << " " << v.maxSize;
        EXPECT_EQ(read.str(), values);
        std::string errors;
        for (const std::string& error : log.lines()) errors += error;
        EXPECT_EQ(withoutFolder(errors), text);
        EXPECT_EQ(LogLineNo, std::stoi(line));
    }
}

TEST(VirusList, looksForWholeFalseAlarmsAndForPrefixesOfSpyware) {
    VirusList list;
    EXPECT_FALSE(list.isFalseAlarm("") || list.isSpyware("")) << "nothing is listed";
    list.addFalseAlarm("Spy-\xC4.a");
    list.addSpyware("Spy-\xC4.");
    list.addSpyware("last");
    for (const auto& [why, name, falseAlarm, spyware] : goldenRows<4>(VOLE_ENGINE_ANSWERS, "name")) {
        EXPECT_EQ(list.isFalseAlarm(name.c_str()), falseAlarm == "1") << why;
        EXPECT_EQ(list.isSpyware(name.c_str()), spyware == "1") << why;
    }
    list.addFalseAlarm("");
    list.addSpyware("");
    EXPECT_TRUE(list.isFalseAlarm("") && list.isSpyware("anything"));
    EXPECT_FALSE(list.isFalseAlarm(nullptr) || list.isSpyware(nullptr));
}

TEST(VirusList, readsTheNamesOfTwoSectionsOrSaysThatItCannot) {
    const TempDir dir;
    const std::string failed = "Fail to load false-alarm and spyware.", file = dir / "pattern_assistant.xml";
    for (const auto& [why, xml, falseAlarms, spyware, lines] : goldenRows<5>(VOLE_ENGINE_ANSWERS, "list")) {
        SCOPED_TRACE(why);
        dir.write("pattern_assistant.xml", xml);
        CapturedLog log;
        VirusList list;
        EXPECT_EQ(loadVirusList(&list, dir.path().string()), falseAlarms + spyware == "00" ? -488 : 0);
        const std::string sizes = "faList.size[" + falseAlarms + "], spywareList.size[" + spyware + "]\n";
        EXPECT_EQ(std::to_string(list.falseAlarmCount()) + std::to_string(list.spywareCount()), falseAlarms + spyware);
        EXPECT_EQ(std::to_string(log.lines().size()), lines);
        EXPECT_EQ(log.count(list.empty() ? failed : sizes), 1U);
    }
    std::filesystem::remove(file);
    CapturedLog log;
    VirusList list;
    EXPECT_EQ(loadVirusList(&list, dir.path().string() + "/"), -488);
    EXPECT_EQ(log.lines(), (std::vector{file + ": No such file or directory", failed}));
    EXPECT_EQ(LogLineNo, 428);
    std::filesystem::create_directory(file);
    EXPECT_EQ(loadVirusList(&list, dir.path().string()), -488);
    EXPECT_EQ(loadVirusList(nullptr, dir.path().string()), -487);
}

}  // namespace
