#include "VirusList.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "support/CapturedLog.h"
#include "support/TempDir.h"

namespace {

TEST(VirusList, looksForWholeFalseAlarmsAndForPrefixesOfSpyware) {
    VirusList list;
    EXPECT_FALSE(list.isFalseAlarm("") || list.isSpyware("")) << "nothing is listed";
    list.addFalseAlarm("Spy-\xC4.a");
    list.addSpyware("Spy-\xC4.");
    list.addSpyware("last");
    EXPECT_TRUE(list.isFalseAlarm("sPY-\xC4.A") && list.isSpyware("sPY-\xC4.A") && list.isSpyware("LASTING"));
    for (const char* const name : {"spy-\xC4", "spy-\xE4.a", "xspy-\xC4.", ""}) {
        EXPECT_FALSE(list.isFalseAlarm(name) || list.isSpyware(name)) << name;
    }
    EXPECT_FALSE(list.isFalseAlarm("spy-\xC4.ab"));
    list.addFalseAlarm("");
    list.addSpyware("");
    EXPECT_TRUE(list.isFalseAlarm("") && list.isSpyware("anything"));
    EXPECT_FALSE(list.isFalseAlarm(nullptr) || list.isSpyware(nullptr));
}

TEST(VirusList, readsTheNamesOfTwoSectionsOrSaysThatItCannot) {
    const TempDir dir;
    const std::string file = dir.write("pattern_assistant.xml", "");
    const std::string failed = "Fail to load false-alarm and spyware.";
    const std::tuple<const char*, std::string, std::size_t, std::size_t, std::size_t> cases[] = {
        {"both", "<r><Spyware><i name='c'/></Spyware><FalseAlarm><i name='a'/><j name='b'/></FalseAlarm></r>", 2, 1, 1},
        {"children without one", "<r><FalseAlarm><i/><i Name='b'/><i name='c'/></FalseAlarm></r>", 1, 0, 1},
        {"empty name", "<r><FalseAlarm><i name=''/></FalseAlarm></r>", 1, 0, 1},
        {"grandchildren", "<r><X><FalseAlarm><i name='y'/></FalseAlarm></X><FalseAlarm/></r>", 0, 0, 1},
        {"grandchildren", "<r><FalseAlarm><i name='a'><i name='b'/></i></FalseAlarm></r>", 1, 0, 1},
        {"first section", "<r><Spyware><i name='a'/></Spyware><Spyware><i/><i name='b'/></Spyware></r>", 0, 1, 1},
        {"other case", "<r><falsealarm><i name='a'/></falsealarm></r>", 0, 0, 1},
        {"section as the root", "<FalseAlarm><i name='a'/></FalseAlarm>", 0, 0, 1},
        {"not closed", "<r><FalseAlarm><i name='a'/></FalseAlarm>", 0, 0, 2},
    };
    for (const auto& [why, xml, falseAlarms, spyware, lines] : cases) {
        SCOPED_TRACE(why);
        dir.write("pattern_assistant.xml", xml);
        CapturedLog log;
        VirusList list;
        EXPECT_EQ(loadVirusList(&list, dir.path().string()), falseAlarms + spyware ? 0 : -488);
        const std::string sizes = "faList.size[" + std::to_string(list.falseAlarmCount()) + "], spywareList.size[" +
                                  std::to_string(list.spywareCount()) + "]\n";
        EXPECT_EQ(std::pair(list.falseAlarmCount(), list.spywareCount()), std::pair(falseAlarms, spyware));
        EXPECT_EQ(log.lines().size(), lines);
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
