// The exported functions from init() to freeResource(), with an eye on codes, texts and the lines they log.
#include <pthread.h>
#include <sys/stat.h>

#include <chrono>
#include <thread>
#include <vector>

#include "PatternSlot.h"
#include "support/CapturedLog.h"
#include "support/EngineTest.h"
#include "support/GoldenRows.h"
#include "support/OwnProcess.h"
#include "support/Process.h"
#include "support/SignatureText.h"

namespace {

using Lines = std::vector<std::string>;

const std::string kList = "<r><FalseAlarm><i name='Known'/></FalseAlarm><Spyware><i name='Spy.'/></Spyware></r>";

std::string line(int number, const std::string& text) {
    return "[pattern_assistant:" + std::to_string(number) + "] " + text;
}

// The lines, each behind its number, but for those with smaller numbers: these move with the code.
std::string textOf(const Lines& lines) {
    std::string text;
    for (const std::string& entry : lines) {
        const std::string numbered = entry.substr(entry.find(':') + 1);
        if (std::stoi(numbered) >= 200) text += numbered + "\n";
    }
    return text;
}

using LifecycleTest = EngineTest;

TEST_F(LifecycleTest, initLoadsWhatItCanOfTheRegularFilesAndSaysSo) {
    std::filesystem::create_directory(samples / "empty");
    samples.write("unreadable/pattern_assistant.xml", kList);
    samples.write("unreadable/voleeng.ini", "MaxUnarDepth=-7\n");
    std::filesystem::create_symlink("/proc/self/mem", samples / "unreadable/x.hdb");
    std::filesystem::create_directory(samples / "invisible");
    std::filesystem::create_symlink(std::string(300, 'x'), samples / "invisible/x.hdb");
    samples.write("sound/pattern_assistant.xml", kList);
    samples.write("sound/voleeng.ini", "MaxUnarDepth=0\n");
    samples.write("sound/a.hdb", md5Record("known", "Known"));
    samples.write("sound/a.chk.hdb", md5Record("other", "Other"));
    for (const char* name : {"a.HDB", "a.hdb.txt", "hdb", "a.txt"}) {
        samples.write(std::string("sound/") + name, md5Record("text", "Text"));
    }
    ASSERT_EQ(::mkfifo((samples / "sound/fifo.hdb").c_str(), 0600), 0);
    std::filesystem::create_directory(samples / "sound/folder.hdb");
    std::filesystem::create_symlink(samples / "gone", samples / "sound/dangling.hdb");
    std::filesystem::create_symlink(samples.write("x", md5Record("linked", "Linked")), samples / "sound/link.hdb");
    EngineLog log;
    for (const auto& [why, dir, result, lines] : goldenRows<4>(VOLE_ENGINE_ANSWERS, "init")) {
        EXPECT_EQ(init(dir == "(null)" ? nullptr : (samples / dir).c_str(), message), std::stoi(result)) << why;
        EXPECT_EQ(withoutFolder(textOf(log.taken())), lines) << why;
        if (dir != "sound") freeResource();
    }
    const std::pair<const char*, const char*> verdicts[] = {
        {"known", "Known"}, {"linked", "Linked"}, {"text", "0"}, {"\x80", "0"}};
    for (const auto& [content, verdict] : verdicts) EXPECT_EQ(scan(content), verdict);
    EXPECT_EQ(log.taken().back(), line(1213, "Reach the unarchive depth limit. ASSERT(0 < 0)."));
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
    const std::string large(3 << 20, 'L');  // Kept in a file instead of in memory.
    dir.write("m.hdb", md5Record("some text\nmore\n", "Normal-Md5") + md5Record(large, "Large"));
    dir.write("c.chk", startRecord("some text", "Normal-Sum") + startRecord("  SOME", "Raw-Sum"));
    ASSERT_EQ(load(dir), 0);
    EngineLog log;
    for (const auto& [why, content, verdict, lines] : goldenRows<4>(VOLE_ENGINE_ANSWERS, "scan")) {
        EXPECT_EQ(scan(content), verdict) << why;
        EXPECT_EQ(textOf(log.taken()), lines) << why;
    }

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
    ASSERT_EQ(load(dir), 0);
    const auto openBefore = openDescriptors();
    for (int turn = 0; turn < 200; ++turn) {
        std::thread caller([&] {
            for (std::string text;; reload(folder.c_str(), text)) verdictOf(path);
        });
        std::this_thread::sleep_for(std::chrono::microseconds(turn * 10));
        ASSERT_EQ(pthread_cancel(caller.native_handle()), 0);
        caller.join();
    }
    EXPECT_EQ(openDescriptors(), openBefore);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(loadAnew(dir), 0) << message;
#endif
}

}  // namespace
