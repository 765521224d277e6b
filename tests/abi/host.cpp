// A host as it would be written outside this project: it has the public header and the shared library, nothing else.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "../support/OwnProcess.h"
#include "../support/TempDir.h"
#include "voleeng.h"

// What the binary interface promises.
static_assert(offsetof(VoleDebugger, level) == 0);
static_assert(offsetof(VoleDebugger, print) == sizeof(void*));
static_assert(offsetof(VoleDebugger, dumpPath) == 2 * sizeof(void*));
#if defined(__i386__)
static_assert(sizeof(VoleDebugger) == 12);
#endif

// Functions of the host that share their names with functions inside the library, which must not call them.
__attribute__((visibility("default"))) void resultMessage(int, const char*, std::string&) { std::abort(); }
__attribute__((visibility("default"))) bool matchSpam(const char*, const char*, std::string&) { std::abort(); }
__attribute__((visibility("default"))) std::string pathIn(const std::string&, const char*) { std::abort(); }

namespace {

const std::string kStarter = VOLE_STARTER_PATTERNS;

// The industry's harmless test string, in two pieces so that no scanner takes this file for a sample.
std::string eicar() {
    return std::string("X5O!P%@AP[4\\PZX54(P^)7CC)7}$EICAR") + "-STANDARD-ANTIVIRUS-TEST-FILE!$H+H*";
}

// Called with each line while a test has set it.
std::function<void(const std::string&)> onLine;

void print(const char* line) {
    if (onLine) onLine(line);
}

class Host : public testing::Test {
protected:
    Host() {
        freeResource();
        listen(3);
    }
    ~Host() override {
        listen(0);
        freeResource();
    }

    void listen(int level, std::function<void(const std::string&)> listener = nullptr) {
        onLine = std::move(listener);
        VoleDebugger record{level, print, "ignored"};
        setDebugger(&record);
    }

    struct Answer {
        int result;
        std::string virus, message;
        bool operator==(const Answer&) const = default;
        friend void PrintTo(const Answer& answer, std::ostream* out) {
            *out << answer.result << " [" << answer.virus << "] [" << answer.message << "]";
        }
    };

    static Answer scan(const std::string& path) {
        Answer answer{0, "-", "-"};
        answer.result = scanFile(path.c_str(), answer.virus, answer.message);
        return answer;
    }
    static Answer loaded(int (*load)(const char*, std::string&), const std::string& path) {
        Answer answer{0, "", "-"};
        answer.result = load(path.c_str(), answer.message);
        return answer;
    }

    TempDir dir;
};

TEST_F(Host, findsTheTestString) {
    EXPECT_EQ(loaded(init, kStarter), (Answer{0, "", ""}));
    std::string recased = "\n \t" + eicar();
    for (char& c : recased) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
    const std::pair<std::string, const char*> cases[] = {
        {eicar() + "\r\n", "Eicar-Test-File"},
        {eicar() + std::string(99, '\0'), "Eicar-Test-Start"},
        {recased, "Eicar-Test-Text"},
        {eicar(), "Eicar-Test-File"},
    };
    for (const auto& [content, virus] : cases) EXPECT_EQ(scan(dir.write("bad", content)), (Answer{1, virus, "-"}));
    std::filesystem::create_symlink(dir / "bad", dir / "link");
    EXPECT_EQ(scan((dir / "link").string()).result, 1);
    for (const std::string& content : {std::string(), eicar().substr(1), eicar().substr(0, 67)}) {
        EXPECT_EQ(scan(dir.write("clean", content)), (Answer{0, "-", "-"})) << content;
    }
    EXPECT_EQ(freeResource(), 0);
    EXPECT_EQ(scan((dir / "bad").string()).result, 0);
}

TEST_F(Host, getsACodeAndATextForEveryFailure) {
    const std::string file = dir.write("file", "x");
    const std::string missing = (dir / "missing").string();
    EXPECT_EQ(loaded(reload, kStarter), (Answer{-473, "", ""}));
    // The plug-in is looked for last, and the text of its code is empty.
    EXPECT_EQ(loaded(init, missing), (Answer{-498, "", ""}));
    ASSERT_EQ(loaded(init, kStarter + "/"), (Answer{0, "", ""}));
    EXPECT_EQ(loaded(init, missing), (Answer{-500, "", "pattern for VoleEngine has been loaded."}));
    EXPECT_EQ(loaded(reload, file), (Answer{-498, "", file + " isn't a valid pattern dir path."}));

    const TempDir bad;
    EXPECT_EQ(loaded(reload, bad.path()), (Answer{-488, "", "fail to load pa list from " + bad.path().string()}));
    std::filesystem::create_symlink("/proc/self/mem", bad / "unreadable.hdb");
    EXPECT_EQ(loaded(reload, bad.path()), (Answer{-494, "",
                                                  "fail to load pattern file: " + bad.path().string() +
                                                      ", maybe this pattern file format is not valid."}));

    std::filesystem::create_directory(dir / "folder");
    ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
    ASSERT_EQ(::truncate(dir.write("huge", "").c_str(), off_t{0x7FFFFFFF} + 1), 0);
    for (const std::string name : {"missing", "folder", "fifo", "huge"}) {
        const std::string path = (dir / name).string();
        EXPECT_EQ(scan(path), (Answer{-493, "-", "fail to open file: " + path}));
    }
    EXPECT_EQ(scan("/dev/zero"), (Answer{-493, "-", "fail to open file: /dev/zero"}));
    EXPECT_EQ(scan(dir.write("a", eicar())).result, 1) << "the signatures have stayed";
}

TEST_F(Host, hearsOfAFileThatShrinksWhileItIsRead) {
    const TempDir set;
    // A record that looks at the end of files.
    set.write("end.chk", "00:0100:0100:04:78787878:00000000:0004:04:00000000:End\n");
    ASSERT_EQ(loaded(init, set.path()).result, 0);
    // Large enough not to be copied before it is scanned.
    const std::string path = dir.write("large", std::string(2 << 20, 'x'));
    EXPECT_EQ(scan(path), (Answer{0, "-", "-"}));
    listen(3, [&](const std::string& line) {
        if (line.find("chk scan iob") == std::string::npos) return;
        EXPECT_EQ(::truncate(path.c_str(), 1 << 20), 0);
    });
    EXPECT_EQ(scan(path), (Answer{-481, "-", ""})) << "not clean: what was to be compared is gone";
}

TEST_F(Host, isToldToComeBackWhileAScanHoldsTheIdleSlot) {
    ASSERT_EQ(loaded(init, kStarter).result, 0);
    const TempDir other;
    // The starter set with other names.
    for (const auto& entry : std::filesystem::directory_iterator(kStarter)) {
        std::string content = TempDir::contentOf(entry.path());
        for (std::size_t at; (at = content.find("Eicar-Test")) != std::string::npos;) content.replace(at, 10, "Other");
        other.write(entry.path().filename().string(), content);
    }
    const std::string path = dir.write("text", eicar() + "x");
    std::mutex mutex;
    std::condition_variable changed;
    bool scanning = false, goOn = false;
    listen(3, [&](const std::string& line) {
        if (line.find("chk scan iob") == std::string::npos) return;
        std::unique_lock lock(mutex);
        scanning = true;
        changed.notify_all();
        changed.wait(lock, [&] { return goOn; });
    });
    Answer answer{};
    std::thread scanner([&] { answer = scan(path); });
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return scanning; });
    }
    EXPECT_EQ(loaded(reload, other.path()).result, 0);
    EXPECT_EQ(loaded(reload, other.path()), (Answer{-472, "", "No idle container."}));
    {
        const std::lock_guard lock(mutex);
        goOn = true;
        changed.notify_all();
    }
    scanner.join();
    listen(0);
    EXPECT_EQ(answer, (Answer{1, "Eicar-Test-Start", "-"})) << "from the signatures that it began with";
    EXPECT_EQ(scan(path), (Answer{1, "Other-Start", "-"}));
    EXPECT_EQ(loaded(reload, kStarter).result, 0) << "the slot is idle again";
}

TEST_F(Host, asksTheListsAndTheSpamRule) {
    EXPECT_EQ(IsFalseAlarm("Example-False-Alarm"), 0);
    EXPECT_EQ(IsSpyware("Example-Spyware-"), 0);
    ASSERT_EQ(loaded(init, kStarter).result, 0);
    EXPECT_EQ(IsFalseAlarm("EXAMPLE-false-alarm"), 1);
    EXPECT_EQ(IsFalseAlarm("Example-False-Alarms"), 0);
    EXPECT_EQ(IsSpyware("EXAMPLE-spyware-any"), 1);
    EXPECT_EQ(IsSpyware("Example-Spyware"), 0);
    std::string virus = "-";
    EXPECT_EQ(checkSpam("subject", "update-12345.rar", 0, virus), 0);
    EXPECT_EQ(virus, "-");
    EXPECT_EQ(checkSpam("subject", "HotFix-12345.rar", 0xFFFFFFFF, virus), 1);
    EXPECT_EQ(virus, "W32.Email.W.Zhelatin.dj");
}

TEST_F(Host, asksThePlugIn) {
    inOwnProcess([] {
        int extra = 7;
        EXPECT_EQ(heu_instance, nullptr);
        EXPECT_EQ(checkSusVirus(1, &extra), 0);
        EXPECT_EQ(extra, 0);
        const TempDir set;
        std::filesystem::copy_file(VOLE_TEST_PLUGIN_GOOD, set / "libheueng.so");
        set.write("heueng.ini", "0 100");
        EXPECT_EQ(loaded(init, set.path()), (Answer{0, "", "fail to load pa list from " + set.path().string()}));
        EXPECT_NE(heu_instance, nullptr);
        EXPECT_EQ(checkSusVirus(5, &extra), 105);
        EXPECT_EQ(extra, 5);
        EXPECT_EQ(checkSusVirus(5, nullptr), 105);
    });
}

TEST_F(Host, readsTheExportedState) {
    EXPECT_STREQ(getVersion(), "Vole Engine Version: 1.0.0.223");
    EXPECT_STREQ(vole_ini_fname, "voleeng.ini");
    EXPECT_EQ(voleeng_debugger.level, 3);
    EXPECT_EQ(voleeng_debugger.print, &print);
    EXPECT_EQ(voleeng_debugger.dumpPath, "") << "setDebugger() takes two fields only";
    setDumpPath("/some/where");
    EXPECT_EQ(voleeng_debugger.dumpPath, "/some/where");
    setDebugger(nullptr);
    EXPECT_EQ(voleeng_debugger.level, 3);
    setDumpPath(nullptr);
    EXPECT_EQ(voleeng_debugger.dumpPath, "");

    std::vector<std::string> lines;
    listen(1, [&](const std::string& line) { lines.push_back(line); });
    scan("/nowhere");
    EXPECT_EQ(lines, std::vector<std::string>{"Can't open /nowhere"});
    EXPECT_STREQ(LogFileName, "pattern_assistant");
    EXPECT_EQ(LogLineNo, 1393);
    lines.clear();
    listen(3, [&](const std::string& line) { lines.push_back(line); });
    std::string virus;
    checkSpam("", "short", 0, virus);
    EXPECT_EQ(lines,
              std::vector<std::string>{"[pattern_assistant:899] checkSpam, length of attachment must more than 9."});
}

}  // namespace
