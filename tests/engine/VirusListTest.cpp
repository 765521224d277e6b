#include "VirusList.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/CapturedLog.h"
#include "support/TempDir.h"

namespace {

int load(VirusList& list, const std::string& xml) {
    const TempDir dir;
    dir.write("pattern_assistant.xml", xml);
    return loadVirusList(&list, dir.path().string());
}

TEST(VirusList, aFalseAlarmIsTheWholeName) {
    VirusList list;
    EXPECT_FALSE(list.isFalseAlarm("")) << "nothing is listed";
    list.addFalseAlarm("TROJ_SAMPLE.A");
    const struct {
        const char* name;
        bool listed;
    } cases[] = {{"TROJ_SAMPLE.A", true},
                 {"troj_sample.a", true},
                 {"TROJ_SAMPLE.AB", false},
                 {"TROJ_SAMPLE.", false},
                 {"", false},
                 {nullptr, false},
                 {"TROJ_SAMPLE.\xC1", false}};
    for (const auto& c : cases) EXPECT_EQ(list.isFalseAlarm(c.name), c.listed) << (c.name ? c.name : "null");
    list.addFalseAlarm("");
    EXPECT_TRUE(list.isFalseAlarm(""));
    EXPECT_FALSE(list.isFalseAlarm(nullptr));
}

TEST(VirusList, spywareIsAPrefix) {
    VirusList list;
    EXPECT_FALSE(list.isSpyware("")) << "nothing is listed";
    list.addSpyware("adw_");
    list.addSpyware("SPY-\xC4.");
    const struct {
        const char* name;
        bool listed;
    } cases[] = {
        {"adw_toolbar.b", true}, {"ADW_TOOLBAR.B", true}, {"Adw_", true},      {"adw", false},
        {"xadw_", false},        {"adw-toolbar", false},  {"", false},         {nullptr, false},
        {"spy-\xC4.x", true},    {"spy-\xE4.x", false},   {"adw_again", true}, {"ADW_AGAIN", true},
    };
    for (const auto& c : cases) EXPECT_EQ(list.isSpyware(c.name), c.listed) << (c.name ? c.name : "null");
    list.addSpyware("");
    EXPECT_TRUE(list.isSpyware("anything"));
    EXPECT_TRUE(list.isSpyware(""));
    EXPECT_FALSE(list.isSpyware(nullptr));
}

TEST(VirusList, readsTheNamesOfTwoSections) {
    const struct {
        const char* why;
        std::string xml;
        std::size_t falseAlarms;
        std::size_t spyware;
    } cases[] = {
        {"both", "<r><FalseAlarm><i name='a'/><j name='b'/></FalseAlarm><Spyware><i name='c'/></Spyware></r>", 2, 1},
        {"the other way round", "<r><Spyware><i name='c'/></Spyware><FalseAlarm><i name='a'/></FalseAlarm></r>", 1, 1},
        {"one section", "<r><Spyware><i name='c'/></Spyware></r>", 0, 1},
        {"children without a name", "<r><FalseAlarm><i/><i nam='a'/><i Name='b'/><i name='c'/></FalseAlarm></r>", 1, 0},
        {"empty name", "<r><FalseAlarm><i name=''/></FalseAlarm></r>", 1, 0},
        {"other elements",
         "<r><X name='x'><FalseAlarm><i name='y'/></FalseAlarm></X>"
         "<Spyware><i name='c'/></Spyware></r>",
         0, 1},
        {"grandchildren", "<r><FalseAlarm><i name='a'><i name='b'/></i></FalseAlarm></r>", 1, 0},
        {"the first section of that name", "<r><Spyware><i name='a'/></Spyware><Spyware><i name='b'/></Spyware></r>", 0,
         1},
        {"other case", "<r><falsealarm><i name='a'/></falsealarm></r>", 0, 0},
        {"sections as the root", "<FalseAlarm><i name='a'/></FalseAlarm>", 0, 0},
        {"no sections", "<r/>", 0, 0},
        {"empty sections", "<r><FalseAlarm/><Spyware/></r>", 0, 0},
    };
    for (const auto& c : cases) {
        CapturedLog log;
        VirusList list;
        const bool empty = c.falseAlarms + c.spyware == 0;
        EXPECT_EQ(load(list, c.xml), empty ? -488 : 0) << c.why;
        EXPECT_EQ(list.falseAlarmCount(), c.falseAlarms) << c.why;
        EXPECT_EQ(list.spywareCount(), c.spyware) << c.why;
        ASSERT_EQ(log.lines().size(), 1U) << c.why;
        const std::string counts =
            "faList.size[" + std::to_string(c.falseAlarms) + "], spywareList.size[" + std::to_string(c.spyware) + "]\n";
        EXPECT_EQ(log.count(empty ? "Fail to load false-alarm and spyware." : counts), 1U) << c.why;
    }
}

TEST(VirusList, saysWhyNothingWasLoaded) {
    const TempDir dir;
    const std::string file = (dir / "pattern_assistant.xml").string();
    {
        CapturedLog log;
        VirusList list;
        EXPECT_EQ(loadVirusList(&list, dir.path().string() + "/"), -488);
        EXPECT_EQ(log.lines(), (std::vector<std::string>{file + ": No such file or directory",
                                                         "Fail to load false-alarm and spyware."}));
        EXPECT_EQ(LogLineNo, 428);
    }
    {
        CapturedLog log;
        VirusList list;
        EXPECT_EQ(load(list, "<r><FalseAlarm><i name='a'/></FalseAlarm>"), -488) << "not closed";
        EXPECT_EQ(log.lines().size(), 2U);
        EXPECT_TRUE(list.empty());
    }
    std::filesystem::create_directory(file);
    VirusList list;
    EXPECT_EQ(loadVirusList(&list, dir.path().string()), -488);
    EXPECT_EQ(loadVirusList(nullptr, dir.path().string()), -487);
}

}  // namespace
