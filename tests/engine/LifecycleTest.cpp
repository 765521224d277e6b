// The exported functions from init() to freeResource(), with an eye on codes, texts and the lines they log.
#include <pthread.h>
#include <sys/stat.h>

#include <chrono>
#include <thread>
#include <tuple>
#include <vector>

#include "PatternSlot.h"
#include "support/CapturedLog.h"
#include "support/EngineTest.h"
#include "support/OwnProcess.h"
#include "support/SignatureText.h"

namespace {

using Lines = std::vector<std::string>;

const std::string kList = "<r><FalseAlarm><i name='Known'/></FalseAlarm><Spyware><i name='Spy.'/></Spyware></r>";

std::string line(int number, const std::string& text) {
    return "[pattern_assistant:" + std::to_string(number) + "] " + text;
}

using LifecycleTest = EngineTest;

TEST_F(LifecycleTest, initLoadsTheRegularFilesOfTheDirectoryAndSaysSo) {
    const TempDir dir;
    dir.write("a.hdb", md5Record("known", "Known"));
    for (const char* name : {"a.HDB", "a.hdb.txt", "hdb", "notes.txt"}) dir.write(name, md5Record("text", "Text"));
    dir.write("a.chk.hdb", md5Record("other", "Other"));
    ASSERT_EQ(::mkfifo((dir / "fifo.hdb").c_str(), 0600), 0);
    dir.write("pattern_assistant.xml", kList);
    dir.write("voleeng.ini", "MaxUnarDepth=0\n");
    std::filesystem::create_directory(dir / "folder.hdb");
    std::filesystem::create_symlink(dir / "gone", dir / "dangling.hdb");
    std::filesystem::create_symlink(samples.write("x", md5Record("linked", "Linked")), dir / "link.hdb");
    EngineLog log;
    ASSERT_EQ(load(dir), 0);
    Lines lines = log.taken();
    ASSERT_EQ(lines.size(), 9U);
    EXPECT_TRUE(lines[6].ends_with("] faList.size[1], spywareList.size[1]\n")) << lines[6];
    lines.resize(6);
    EXPECT_EQ(lines,
              (Lines{line(284, "MaxUnarEntries      = 100."), line(285, "MaxUnarRatio        = 250."),
                     line(286, "MaxUnarLevelEntries = 50."), line(287, "MaxUnarDepth        = 0."),
                     line(288, "MaxUnarSize         = 1048576 bytes."), line(503, "vole-engine, pattern [3]\n")}));
    EXPECT_EQ(load(dir), -500);
    EXPECT_EQ(log.taken(), Lines{line(624, "pattern for VoleEngine has been loaded.")});
    EXPECT_EQ(scan("known"), "Known");
    EXPECT_EQ(scan("linked"), "Linked");
    EXPECT_EQ(scan("text"), "0");
    EXPECT_EQ(scan("\x80"), "0");
    EXPECT_EQ(log.taken().back(), line(1213, "Reach the unarchive depth limit. ASSERT(0 < 0)."));
}

TEST_F(LifecycleTest, anyPartThatLoadsMakesInitSucceed) {
    const TempDir empty, list, tooLong;
    list.write("pattern_assistant.xml", kList);
    list.write("voleeng.ini", "MaxUnarDepth=-7\n");
    const std::string none = empty.path(), missing = empty / "x", broken = list.path();
    std::filesystem::create_symlink("/proc/self/mem", list / "broken.hdb");  // Opens, and cannot be read.
    std::filesystem::create_symlink(empty / "x", empty / "nowhere.hdb");
    std::filesystem::create_symlink(std::string(300, 'x'), tooLong / "x.hdb");  // Cannot be looked at.
    const auto badFile = [](const std::string& dir) {
        return "fail to load pattern file: " + dir + ", maybe this pattern file format is not valid.";
    };
    const std::string noDir = " isn't a valid pattern dir path.", noList = "fail to load pa list from ";
    // Ends with the lines from init() itself, up to those about the plug-in.
    const std::tuple<const char*, int, Lines> cases[] = {
        {none.c_str(), 0, {line(656, "LOAD_OPOTION error -490."), line(670, "rc2 is -488"), line(671, noList + none)}},
        {broken.c_str(),
         0,
         {line(656, "LOAD_OPOTION error -489."), line(664, "rc1 is -494"), line(665, badFile(broken))}},
        {tooLong.path().c_str(),
         -494,
         {line(656, "LOAD_OPOTION error -490."), line(664, "rc1 is -494"), line(665, badFile(tooLong.path())),
          line(670, "rc2 is -488"), line(671, noList + tooLong.path().string())}},
        {missing.c_str(),
         -498,
         {line(656, "LOAD_OPOTION error -490."), line(664, "rc1 is -498"), line(665, missing + noDir),
          line(670, "rc2 is -488"), line(671, noList + missing)}},
        {nullptr, -498, {line(664, "rc1 is -498"), line(665, noDir)}},
    };
    for (auto [dir, result, expected] : cases) {
        freeResource();
        EngineLog log(1);
        EXPECT_EQ(init(dir, message), result);
        Lines lines = log.taken();
        if (dir) expected.insert(expected.end(), {line(681, "rc3 is -479"), line(682, "Fail to install heueng : .")});
        std::erase_if(lines, [](const std::string& entry) { return entry < line(600, ""); });
        EXPECT_EQ(lines, expected);
    }
}

TEST_F(LifecycleTest, reloadSwitchesOnlyWhenEverythingLoadedAndSlotsInUseOutliveFreeResource) {
    const TempDir first, second, noList, noSignatures;
    first.write("pattern_assistant.xml", kList);
    second.write("pattern_assistant.xml", "<r><Spyware><i name='Second.'/></Spyware></r>");
    noSignatures.write("pattern_assistant.xml", kList);
    for (const TempDir* dir : {&first, &second, &noList}) {
        dir->write("a.hdb", md5Record("known", dir == &first ? "First" : dir == &second ? "Second" : "NoList"));
    }
    ASSERT_EQ(load(first), 0);
    EngineLog log(1);
    {
        const SlotLease a = SlotLease::acquire();
        EXPECT_EQ(loadAnew(second), 0);
        EXPECT_EQ(log.taken(), Lines{}) << "neither options nor plug-in are read again";
        EXPECT_EQ(loadAnew(noList), -472);
        EXPECT_EQ(a->patterns->md5List().count(), 1U) << "replaced, but in use";
        const SlotLease b = SlotLease::acquire();
        const SlotLease again = SlotLease::acquire();
        EXPECT_EQ(freeResource(), 0);
        EXPECT_FALSE(SlotLease::acquire());
        ASSERT_EQ(load(second), 0);
        EXPECT_TRUE(a->paList->isFalseAlarm("known"));
        EXPECT_EQ(b->patterns->md5List().count(), 1U);
    }
    log.taken();
    EXPECT_EQ(loadAnew(noList), -488);
    EXPECT_EQ(log.taken().back(), line(732, "fail to load pa list from " + noList.path().string()));
    EXPECT_EQ(reload(nullptr, message), -498);
    EXPECT_EQ(log.taken().back(), line(726, " isn't a valid pattern dir path."));
    EXPECT_FALSE(activeSlot.load()->partner->patterns) << "what did not load was let go of";
    EXPECT_EQ(scan("known"), "Second") << "what failed to load is nowhere seen";
    EXPECT_EQ(IsSpyware("second.x"), 1);
    EXPECT_EQ(IsSpyware("spy.x"), 0);
    inOwnProcess([&] {
        EXPECT_EQ(scan("known"), "Second") << "a forked child has a copy";
        EXPECT_EQ(loadAnew(first) + freeResource(), 0);
    });
    PatternSlot* replaced = activeSlot;
    {
        const SlotLease user = SlotLease::acquire();
        EXPECT_EQ(loadAnew(noSignatures), 0) << "a directory without signatures loads";
        EXPECT_TRUE(replaced->patterns && replaced->paList) << "in use";
    }
    EXPECT_FALSE(replaced->patterns || replaced->paList) << "the last user let go of it";
    EXPECT_EQ(scan("known"), "0");
}

TEST_F(LifecycleTest, scansInTheOrderRawMd5ThenCheckSumsThenNormalizedText) {
    const TempDir dir;
    const std::string indented = "  SOME Text\r\n\r\n  more\r\n";
    const std::string large(3 << 20, 'L');  // Kept in a file instead of in memory.
    dir.write("m.hdb", md5Record("some text\nmore\n", "Normal-Md5") + md5Record(large, "Large"));
    dir.write("c.chk", startRecord("some text", "Normal-Sum") + startRecord("  SOME", "Raw-Sum"));
    ASSERT_EQ(load(dir), 0);
    EngineLog log;
    EXPECT_EQ(scan(indented), "Raw-Sum");
    Lines lines = log.taken();
    EXPECT_EQ(Lines(lines.begin() + 1, lines.end()), (Lines{line(1287, "scan raw file, scanned 23 bytes, return 1."),
                                                            line(1413, "(IN PARSE), Found virus [Raw-Sum].")}));
    EXPECT_EQ(scan(indented.substr(1)), "Normal-Md5");
    lines = log.taken();
    EXPECT_EQ(Lines(lines.begin() + 1, lines.begin() + 4),
              (Lines{line(1287, "scan raw file, scanned 22 bytes, return 0."),
                     line(1295, "return from normalize_iob, size=15"),
                     line(1298, "scan normalized raw file, scanned 15 bytes, return 1.")}));
    EXPECT_EQ(scan("some TEXT and more"), "Normal-Sum");
    log.taken();
    EXPECT_EQ(scan("\x80"), "0");
    EXPECT_EQ(log.taken()[3], line(1295, "return from normalize_iob, size=0"));
    EXPECT_EQ(scan(large), "Large");
    EXPECT_EQ(scan(large + "x"), "0");
    log.taken();

    // The text may take the place of the path.
    message = "/gone";
    std::string virus;
    EXPECT_EQ(scanFile(message.c_str(), virus, message), -493);
    EXPECT_EQ(message, "fail to open file: /gone");
    EXPECT_EQ(scanFile(nullptr, virus, message), -493);
    EXPECT_EQ(message, "fail to open file: [NULL]");
    EXPECT_EQ(log.taken(), (Lines{line(1393, "Can't open /gone"), line(1393, "Can't open [NULL]")}));
}

// A cancelled call must not take the process with it, and must give back its slot and what it has opened.
TEST_F(LifecycleTest, aCancelledCallLeavesTheEngineUsable) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers do not understand the unwinding of a cancelled thread";
#else
    const TempDir dir;
    dir.write("a.hdb", md5Record("known", "Known"));
    dir.write("b.chk", startRecord("some text", "Sum"));
    dir.write("pattern_assistant.xml", kList);
    const std::string path = samples.write("sample", "Some\ntext\n"), folder = dir.path();
    const auto openFiles = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    ASSERT_EQ(load(dir), 0);
    const auto openBefore = openFiles();
    for (int turn = 0; turn < 200; ++turn) {
        std::thread caller([&] {
            for (std::string text;; reload(folder.c_str(), text)) verdictOf(path);
        });
        std::this_thread::sleep_for(std::chrono::microseconds(turn * 10));
        ASSERT_EQ(pthread_cancel(caller.native_handle()), 0);
        caller.join();
    }
    EXPECT_EQ(openFiles(), openBefore);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(loadAnew(dir), 0) << message;
#endif
}

}  // namespace
