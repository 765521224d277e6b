// The exported functions from init() to freeResource(), with an eye on codes, texts and the lines they log.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "PatternLoader.h"
#include "PatternSlot.h"
#include "VoleOptions.h"
#include "support/EngineLog.h"
#include "support/SignatureText.h"
#include "support/TempDir.h"
#include "voleeng.h"

namespace {

using Lines = std::vector<std::string>;

const std::string kSample = "This content is known.";
const std::string kList =
    "<r><FalseAlarm><i name='Known-FA'/></FalseAlarm><Spyware><i name='Known-Spy.'/></Spyware></r>";

std::string line(int number, const std::string& text) {
    return "[pattern_assistant:" + std::to_string(number) + "] " + text;
}

// A pattern directory, and a sample that its signatures are about.
class PatternDir : public TempDir {
public:
    PatternDir& withSignature(const std::string& name, const std::string& content = kSample) {
        write("a.hdb", md5Record(content, name));
        return *this;
    }
    PatternDir& withList(const std::string& xml = kList) {
        write("pattern_assistant.xml", xml);
        return *this;
    }
    std::string name() const { return path().string(); }
};

class LifecycleTest : public testing::Test {
protected:
    LifecycleTest() { freeResource(); }
    ~LifecycleTest() override {
        freeResource();
        VoleOptions::set({100, 250, 50, 50, 1048576});
    }

    int load(const TempDir& dir) { return init(dir.path().c_str(), message); }

    // The name that a scan of the content reports; "clean", or the code.
    std::string scan(const std::string& content) {
        std::string virus;
        std::string text = "untouched";
        const int result = scanFile(samples.write("sample", content).c_str(), virus, text);
        EXPECT_EQ(text, "untouched");
        return result == 1 ? virus : result == 0 && virus.empty() ? "clean" : std::to_string(result);
    }

    TempDir samples;
    std::string message = "untouched";
};

TEST_F(LifecycleTest, initSaysWhatItLoads) {
    PatternDir dir;
    dir.withSignature("Known").withList();
    dir.write("voleeng.ini", "MaxUnarDepth=7\n");
    EngineLog log;
    ASSERT_EQ(load(dir), 0);
    Lines lines = log.taken();
    ASSERT_EQ(lines.size(), 9U);
    EXPECT_EQ(lines[3], line(287, "MaxUnarDepth        = 7."));
    EXPECT_EQ(lines[5], line(503, "vole-engine, pattern [1]\n"));
    EXPECT_TRUE(lines[6].ends_with("] faList.size[1], spywareList.size[1]\n")) << lines[6];
    EXPECT_EQ(lines[7], line(681, "rc3 is -479"));
    EXPECT_EQ(lines[8], line(682, "Fail to install heueng : ."));
    EXPECT_EQ(message, "") << "the text of the plug-in's code";

    EXPECT_EQ(load(dir), -500);
    EXPECT_EQ(message, "pattern for VoleEngine has been loaded.");
    EXPECT_EQ(log.taken(), Lines{line(624, message)});
    EXPECT_EQ(scan(kSample), "Known");
}

TEST_F(LifecycleTest, anyPartThatLoadsMakesInitSucceed) {
    const PatternDir empty, list;
    list.write("pattern_assistant.xml", kList);
    const struct {
        const char* why;
        std::string dir;
        int patternResult;
        int listResult;
        int result;
    } cases[] = {
        {"a directory without signatures or lists", empty.name(), 0, -488, 0},
        {"only lists", list.name() + "/", 0, 0, 0},
        {"missing", empty.name() + "/x", -498, -488, -498},
        {"a file", list.name() + "/pattern_assistant.xml", -498, -488, -498},
    };
    for (const auto& c : cases) {
        freeResource();
        EngineLog log(1);
        EXPECT_EQ(init(c.dir.c_str(), message), c.result) << c.why;
        EXPECT_EQ(message, "") << c.why << ": the text of the plug-in's code";
        Lines expected;
        expected.push_back(line(656, "LOAD_OPOTION error -490."));
        if (c.patternResult != 0) {
            expected.push_back(line(664, "rc1 is -498"));
            expected.push_back(line(665, c.dir + " isn't a valid pattern dir path."));
        }
        if (c.listResult != 0) {
            expected.push_back(line(670, "rc2 is -488"));
            expected.push_back(line(671, "fail to load pa list from " + c.dir));
        }
        expected.push_back(line(681, "rc3 is -479"));
        expected.push_back(line(682, "Fail to install heueng : ."));
        Lines lines = log.taken();
        // What the readers of options and lists say themselves is tested with them.
        std::erase_if(lines, [](const std::string& entry) {
            return entry.starts_with(line(209, "")) || entry.starts_with(line(423, "")) ||
                   entry.starts_with(line(428, ""));
        });
        EXPECT_EQ(lines, expected) << c.why;
        EXPECT_EQ(reload(list.name().c_str(), message), c.result == 0 ? 0 : -473) << c.why;
    }
}

TEST_F(LifecycleTest, aFailedInitMayBeRepeated) {
    PatternDir dir;
    dir.withSignature("Known").withList();
    for (int i = 0; i < 3; ++i) EXPECT_EQ(init("/nowhere", message), -498);
    EXPECT_EQ(scan(kSample), "clean");
    EXPECT_EQ(reload(dir.name().c_str(), message), -473);
    EXPECT_EQ(message, "");
    EXPECT_EQ(load(dir), 0);
    EXPECT_EQ(scan(kSample), "Known");
}

TEST_F(LifecycleTest, anIllegalOptionIsOnlyLogged) {
    PatternDir dir;
    dir.withSignature("Known").withList().write("voleeng.ini", "MaxUnarDepth=-7\n");
    EngineLog log(1);
    EXPECT_EQ(load(dir), 0);
    EXPECT_EQ(log.taken(),
              (Lines{line(256, "MaxUnarDepth's Value [-7] is illegal."), line(656, "LOAD_OPOTION error -489."),
                     line(681, "rc3 is -479"), line(682, "Fail to install heueng : .")}));
    EXPECT_EQ(VoleOptions::get().maxDepth, 50);
    EXPECT_EQ(scan(kSample), "Known");
}

TEST_F(LifecycleTest, loadsTheRegularFilesOfTheDirectory) {
    PatternDir dir;
    dir.withSignature("Known");
    std::filesystem::create_directory(dir / "folder.hdb");
    std::filesystem::create_symlink(dir / "gone", dir / "dangling.hdb");
    const TempDir elsewhere;
    std::filesystem::create_symlink(elsewhere.write("x", md5Record("linked", "Linked")), dir / "link.hdb");
    dir.write("notes.txt", md5Record("text", "Text"));
    ASSERT_EQ(load(dir), 0);
    EXPECT_EQ(scan(kSample), "Known");
    EXPECT_EQ(scan("linked"), "Linked");
    EXPECT_EQ(scan("text"), "clean");
}

TEST_F(LifecycleTest, aPatternFileThatCannotBeReadFailsTheLoad) {
    PatternDir dir;
    dir.withSignature("Known").withList();
    std::filesystem::create_symlink("/proc/self/mem", dir / "broken.hdb");
    PatternContainer container;
    EngineLog log;
    EXPECT_EQ(load_pattern(&container, (dir.name() + "/").c_str(), message), -494);
    EXPECT_EQ(message,
              "fail to load pattern file: " + dir.name() + "/broken.hdb, maybe this pattern file format is not valid.");
    EXPECT_EQ(log.taken(), Lines{line(490, "[load_pattern]: container->loadPattern return Error -494.")});

    EXPECT_EQ(load_pattern(nullptr, dir.name().c_str(), message), -500);
    EXPECT_EQ(message, "pattern for VoleEngine has been loaded.");
    EXPECT_EQ(log.taken(), Lines{line(441, "container is NULL")});

    EXPECT_EQ(load(dir), 0) << "the lists loaded";
    const Lines lines = log.taken();
    const std::string text =
        "fail to load pattern file: " + dir.name() + ", maybe this pattern file format is not valid.";
    EXPECT_NE(std::find(lines.begin(), lines.end(), line(665, text)), lines.end()) << "init() names the directory";
    EXPECT_EQ(IsFalseAlarm("Known-FA"), 1);
    EXPECT_EQ(reload(dir.name().c_str(), message), -494);
    EXPECT_EQ(message, text);
    EXPECT_EQ(log.taken().back(), line(726, text));
}

TEST_F(LifecycleTest, reloadSwitchesOnlyWhenEverythingLoaded) {
    PatternDir first, second, noList, noSignatures;
    first.withSignature("First").withList();
    second.withSignature("Second").withList("<r><Spyware><i name='Second.'/></Spyware></r>");
    noList.withSignature("NoList");
    noSignatures.withList("<r><Spyware><i name='Third.'/></Spyware></r>");
    EXPECT_EQ(reload(first.name().c_str(), message), -473);
    EXPECT_EQ(message, "");
    ASSERT_EQ(load(first), 0);
    PatternSlot* const initial = activeSlot.load();

    EngineLog log(1);
    EXPECT_EQ(reload(second.name().c_str(), message), 0);
    EXPECT_EQ(scan(kSample), "Second");
    EXPECT_EQ(IsSpyware("second.x"), 1);
    EXPECT_EQ(IsSpyware("known-spy.x"), 0);
    EXPECT_NE(activeSlot.load(), initial);
    EXPECT_EQ(log.taken(), Lines{}) << "neither options nor plug-in are read again";

    EXPECT_EQ(reload(noList.name().c_str(), message), -488);
    EXPECT_EQ(message, "fail to load pa list from " + noList.name());
    EXPECT_EQ(log.taken().back(), line(732, message));
    EXPECT_EQ(reload("/nowhere", message), -498);
    EXPECT_EQ(message, "/nowhere isn't a valid pattern dir path.");
    EXPECT_EQ(log.taken().back(), line(726, message));
    EXPECT_EQ(scan(kSample), "Second") << "what failed to load is nowhere seen";
    EXPECT_EQ(IsSpyware("second.x"), 1);

    EXPECT_EQ(reload(noSignatures.name().c_str(), message), 0) << "a directory without signatures loads";
    EXPECT_EQ(scan(kSample), "clean");
    EXPECT_EQ(IsSpyware("third.x"), 1);
    EXPECT_EQ(activeSlot.load(), initial) << "the pair takes turns";
    EXPECT_EQ(freeResource(), 0);
    EXPECT_EQ(reload(first.name().c_str(), message), -473);
}

TEST_F(LifecycleTest, reloadLeavesASlotInUseAlone) {
    PatternDir first, second;
    first.withSignature("First").withList();
    second.withSignature("Second").withList();
    ASSERT_EQ(load(first), 0);
    {
        const SlotLease lease = SlotLease::acquire();
        ASSERT_EQ(reload(second.name().c_str(), message), 0) << "the other slot is free";
        EXPECT_EQ(lease->patterns->md5List().count(), 1U);
        EXPECT_EQ(reload(second.name().c_str(), message), -472);
        EXPECT_EQ(message, "No idle container.");
        EXPECT_EQ(lease->patterns->md5List().count(), 1U);
        EXPECT_EQ(scan(kSample), "Second");
        const SlotLease another = SlotLease::acquire();
        EXPECT_EQ(reload(first.name().c_str(), message), -472);
    }
    EXPECT_EQ(reload(first.name().c_str(), message), 0) << "both have been given back";
    EXPECT_EQ(scan(kSample), "First");
}

TEST_F(LifecycleTest, aSlotInUseOutlivesFreeResource) {
    PatternDir first, second;
    first.withSignature("First").withList();
    second.withSignature("Second").withList();
    ASSERT_EQ(load(first), 0);
    {
        const SlotLease a = SlotLease::acquire();
        const SlotLease again = SlotLease::acquire();
        ASSERT_EQ(reload(second.name().c_str(), message), 0);
        const SlotLease b = SlotLease::acquire();
        EXPECT_EQ(freeResource(), 0);
        EXPECT_FALSE(SlotLease::acquire());
        ASSERT_EQ(load(second), 0);
        EXPECT_EQ(a->patterns->md5List().count(), 1U);
        EXPECT_TRUE(b->paList->isFalseAlarm("known-fa"));
        EXPECT_EQ(scan(kSample), "Second");
    }
    EXPECT_EQ(scan(kSample), "Second");
    EXPECT_EQ(reload(first.name().c_str(), message), 0);
    EXPECT_EQ(scan(kSample), "First");
}

TEST_F(LifecycleTest, scansInTheOrderRawMd5ThenCheckSumsThenNormalizedText) {
    PatternDir dir;
    dir.withList();
    const std::string indented = "  SOME Text\r\n\r\n  more\r\n";
    dir.write("m.hdb", md5Record("some text\nmore\n", "Normal-Md5"));
    dir.write("c.chk", startRecord("some text", "Normal-Sum") + startRecord("  SOME", "Raw-Sum"));
    ASSERT_EQ(load(dir), 0);
    EngineLog log;
    EXPECT_EQ(scan(indented), "Raw-Sum");
    Lines lines = log.taken();
    EXPECT_EQ(lines[1], line(1287, "scan raw file, scanned 23 bytes, return 1."));
    EXPECT_EQ(lines.back(), line(1413, "(IN PARSE), Found virus [Raw-Sum]."));
    EXPECT_EQ(lines.size(), 3U);
    EXPECT_EQ(scan(indented.substr(1)), "Normal-Md5");
    lines = log.taken();
    EXPECT_EQ(lines[1], line(1287, "scan raw file, scanned 22 bytes, return 0."));
    EXPECT_EQ(lines[2], line(1295, "return from normalize_iob, size=15"));
    EXPECT_EQ(lines[3], line(1298, "scan normalized raw file, scanned 15 bytes, return 1."));
    EXPECT_EQ(scan(indented + "x"), "Raw-Sum");
    EXPECT_EQ(scan("some TEXT and more"), "Normal-Sum");
    EXPECT_EQ(scan(" \n\t\n"), "clean");
    log.taken();
    EXPECT_EQ(scan("\x80"), "clean");
    lines = log.taken();
    EXPECT_EQ(lines[3], line(1295, "return from normalize_iob, size=0"));
    // Beyond the limit for normalisation, and kept in a file instead of in memory.
    EXPECT_EQ(scan(" " + std::string(65536, 'x')), "clean");
    const std::string large(3 << 20, 'L');
    dir.write("m.hdb", md5Record(large, "Large"));
    ASSERT_EQ(reload(dir.name().c_str(), message), 0);
    EXPECT_EQ(scan(large), "Large");
    EXPECT_EQ(scan(large + "x"), "clean");
}

TEST_F(LifecycleTest, nothingBelowDepthZeroIsLookedFor) {
    PatternDir dir;
    dir.withList().write("voleeng.ini", "MaxUnarDepth=0\n");
    ASSERT_EQ(load(dir), 0);
    EngineLog log;
    EXPECT_EQ(scan("\x80"), "clean");
    EXPECT_EQ(log.taken().back(), line(1213, "Reach the unarchive depth limit. ASSERT(0 < 0)."));
}

TEST_F(LifecycleTest, nullArgumentsAreAnswered) {
    EngineLog log(1);
    std::string virus = "untouched";
    EXPECT_EQ(init(nullptr, message), -498);
    EXPECT_EQ(message, " isn't a valid pattern dir path.");
    EXPECT_EQ(log.taken(), (Lines{line(664, "rc1 is -498"), line(665, " isn't a valid pattern dir path.")}));
    EXPECT_EQ(reload(nullptr, message), -473);
    PatternDir dir;
    ASSERT_EQ(load(dir.withSignature("Known").withList()), 0);
    EXPECT_EQ(reload(nullptr, message), -498);
    EXPECT_EQ(message, " isn't a valid pattern dir path.");
    log.taken();
    EXPECT_EQ(scanFile(nullptr, virus, message), -493);
    EXPECT_EQ(message, "fail to open file: [NULL]");
    message = "/gone";
    EXPECT_EQ(scanFile(message.c_str(), virus, message), -493);
    EXPECT_EQ(message, "fail to open file: /gone");
    EXPECT_EQ(log.taken(), (Lines{line(1393, "Can't open [NULL]"), line(1393, "Can't open /gone")}));
    EXPECT_EQ(IsFalseAlarm(nullptr), 0);
    EXPECT_EQ(IsSpyware(nullptr), 0);
    EXPECT_EQ(checkSpam(nullptr, nullptr, 0, virus), 0);
    EXPECT_EQ(checkSpam(nullptr, "patch-12345.rar", 0, virus), 0);
    EXPECT_EQ(checkSusVirus(1, nullptr), 0);
    EXPECT_EQ(log.taken(), Lines{line(1360, "Fail to get Heuristic Engine Instance.")});
    setDebugger(nullptr);
    EXPECT_EQ(voleeng_debugger.level, 1);
    setDumpPath("/dump");
    EXPECT_EQ(voleeng_debugger.dumpPath, "/dump");
    setDumpPath(nullptr);
    EXPECT_EQ(voleeng_debugger.dumpPath, "");
}

}  // namespace
