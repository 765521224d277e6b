// A host as it would be written outside this project: it has the public header and the shared library, nothing else.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <functional>
#include <string>
#include <thread>

#include "../support/Eicar.h"
#include "../support/TempDir.h"
#include "voleeng.h"

// What the binary interface promises.
static_assert(offsetof(VoleDebugger, print) == sizeof(void*));
static_assert(offsetof(VoleDebugger, dumpPath) == 2 * sizeof(void*));
#if defined(__i386__)
static_assert(sizeof(VoleDebugger) == 12);
#endif

namespace {

const std::string kStarter = VOLE_STARTER_PATTERNS;

void ignore(const std::string&) {}

// Called with each line.
std::function<void(const std::string&)> onLine;

void print(const char* line) { onLine(line); }

class Host : public testing::Test {
protected:
    Host() { listen(3); }
    ~Host() override {
        listen(0);
        freeResource();
    }

    void listen(int level, std::function<void(const std::string&)> listener = ignore) {
        onLine = std::move(listener);
        VoleDebugger record{level, print, "ignored"};
        setDebugger(&record);
    }

    // Result, virus and message; a "-" is what the caller had put there.
    static std::string scan(const std::string& path) {
        std::string virus = "-", message = "-";
        const int result = scanFile(path.c_str(), virus, message);
        return std::to_string(result) + " [" + virus + "] [" + message + "]";
    }
    // Result and message.
    static std::string loaded(int (*load)(const char*, std::string&), const std::string& path) {
        std::string message = "-";
        const int result = load(path.c_str(), message);
        return std::to_string(result) + " [" + message + "]";
    }

    TempDir dir;
};

TEST_F(Host, findsTheTestString) {
    EXPECT_EQ(loaded(init, kStarter), "0 []");
    std::string recased = "\n \t" + eicar();
    for (char& c : recased) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
    const std::pair<std::string, const char*> cases[] = {
        {eicar() + "\r\n", "1 [Eicar-Test-File] [-]"}, {eicar() + std::string(99, '\0'), "1 [Eicar-Test-Start] [-]"},
        {recased, "1 [Eicar-Test-Text] [-]"},          {"", "0 [-] [-]"},
        {eicar().substr(0, 67), "0 [-] [-]"},          {eicar(), "1 [Eicar-Test-File] [-]"},
    };
    for (const auto& [content, answer] : cases) EXPECT_EQ(scan(dir.write("bad", content)), answer);
    EXPECT_EQ(IsFalseAlarm("EXAMPLE-false-alarm"), 1);
    EXPECT_EQ(IsSpyware("EXAMPLE-spyware-any"), 1);
    EXPECT_EQ(freeResource(), 0);
    EXPECT_EQ(scan(dir / "bad"), "0 [-] [-]");
    EXPECT_EQ(IsFalseAlarm("Example-False-Alarm") + IsSpyware("Example-Spyware-"), 0);
}

TEST_F(Host, getsACodeAndATextForEveryFailure) {
    EXPECT_EQ(loaded(reload, kStarter), "-473 []");
    // The plug-in is looked for last, and the text of its code is empty.
    EXPECT_EQ(loaded(init, dir / "missing"), "-498 []");
    ASSERT_EQ(loaded(init, kStarter + "/"), "0 []");
    const std::string file = dir.write("file", eicar());
    EXPECT_EQ(loaded(reload, file), "-498 [" + file + " isn't a valid pattern dir path.]");

    std::filesystem::create_directory(dir / "folder");
    ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
    ASSERT_EQ(::truncate(dir.write("huge", "").c_str(), off_t{0x7FFFFFFF} + 1), 0);
    for (const char* const name : {"missing", "folder", "fifo", "huge", "/dev/zero"}) {
        const std::string unfit = dir.path() / name;
        EXPECT_EQ(scan(unfit), "-493 [-] [fail to open file: " + unfit + "]");
    }
    EXPECT_EQ(scan(file), "1 [Eicar-Test-File] [-]") << "the signatures have stayed";
}

TEST_F(Host, hearsOfAFileThatShrinksWhileItIsRead) {
    const TempDir set;
    // A record that looks at the end of files.
    set.write("end.chk", "00:0100:0100:04:78787878:00000000:0004:04:00000000:End\n");
    ASSERT_EQ(loaded(init, set.path()), "0 []");
    // Large enough not to be copied before it is scanned.
    const std::string path = dir.write("large", std::string(2 << 20, 'x'));
    EXPECT_EQ(scan(path), "0 [-] [-]");
    listen(3, [&](const std::string& line) {
        if (line.find("chk scan iob") == std::string::npos) return;
        EXPECT_EQ(::truncate(path.c_str(), 1 << 20), 0);
    });
    EXPECT_EQ(scan(path), "-481 [-] []") << "not clean: what was to be compared is gone";
}

TEST_F(Host, isToldToComeBackWhileAScanHoldsTheIdleSlot) {
    const std::string path = dir.write("text", eicar() + "x");
    const TempDir other;  // Without signatures.
    other.write("pattern_assistant.xml", "<r><Spyware><i name='x'/></Spyware></r>");
    ASSERT_EQ(loaded(init, kStarter), "0 []");
    std::string answers;
    listen(3, [&](const std::string& line) {
        if (!answers.empty() || line.find("chk scan iob") == std::string::npos) return;
        // On other threads, as this one is in the middle of a scan.
        for (int i = 0; i < 2; ++i) std::thread([&] { answers += loaded(reload, other.path()); }).join();
    });
    EXPECT_EQ(scan(path), "1 [Eicar-Test-Start] [-]") << "from the signatures that it began with";
    EXPECT_EQ(answers, "0 [-]-472 [No idle container.]");
    EXPECT_EQ(scan(path), "0 [-] [-]");
    EXPECT_EQ(loaded(reload, kStarter), "0 [-]") << "the slot is idle again";
}

TEST_F(Host, readsTheExportedState) {
    EXPECT_STREQ(getVersion(), "Vole Engine Version: 1.0.0.223");
    EXPECT_STREQ(vole_ini_fname, "voleeng.ini");
    EXPECT_EQ(heu_instance, nullptr);
    int extra = 7;
    EXPECT_EQ(checkSusVirus(1, &extra) + extra, 0);
    EXPECT_EQ(voleeng_debugger.print, &print);
    EXPECT_EQ(voleeng_debugger.dumpPath, "") << "setDebugger() takes two fields only";
    setDumpPath("/some/where");
    setDebugger(nullptr);
    EXPECT_EQ(voleeng_debugger.dumpPath, "/some/where");
    EXPECT_EQ(voleeng_debugger.level, 3);
    setDumpPath(nullptr);
    EXPECT_EQ(voleeng_debugger.dumpPath, "");

    std::string line, virus = "-";
    listen(1, [&](const std::string& text) { line = text; });
    scan("/nowhere");
    EXPECT_EQ(line, "Can't open /nowhere");
    EXPECT_STREQ(LogFileName, "pattern_assistant");
    EXPECT_EQ(LogLineNo, 1393);
    EXPECT_EQ(checkSpam("subject", "HotFix-12345.rar", 0xFFFFFFFF, virus), 1);
    EXPECT_EQ(virus, "W32.Email.W.Zhelatin.dj");
}

}  // namespace
