// A host as it would be written outside this project: it has the public header and the shared library, nothing else.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "../support/Eicar.h"
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

// Called with each line while a test has set it.
std::function<void(const std::string&)> onLine;

void print(const char* line) {
    if (onLine) onLine(line);
}

struct Answer {
    int result;
    std::string virus, message;
    bool operator==(const Answer&) const = default;
    friend void PrintTo(const Answer& answer, std::ostream* out) {
        *out << answer.result << " [" << answer.virus << "] [" << answer.message << "]";
    }
};

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
    const std::pair<std::string, Answer> cases[] = {
        {eicar() + "\r\n", {1, "Eicar-Test-File", "-"}},
        {eicar() + std::string(99, '\0'), {1, "Eicar-Test-Start", "-"}},
        {recased, {1, "Eicar-Test-Text", "-"}},
        {"", {0, "-", "-"}},
        {eicar().substr(0, 67), {0, "-", "-"}},
        {eicar(), {1, "Eicar-Test-File", "-"}},
    };
    for (const auto& [content, answer] : cases) EXPECT_EQ(scan(dir.write("bad", content)), answer);
    EXPECT_EQ(IsFalseAlarm("EXAMPLE-false-alarm"), 1);
    EXPECT_EQ(IsSpyware("EXAMPLE-spyware-any"), 1);
    EXPECT_EQ(freeResource(), 0);
    EXPECT_EQ(scan((dir / "bad").string()).result, 0);
    EXPECT_EQ(IsFalseAlarm("Example-False-Alarm") + IsSpyware("Example-Spyware-"), 0);
}

TEST_F(Host, getsACodeAndATextForEveryFailure) {
    const std::string file = dir.write("file", "x"), missing = dir / "missing";
    EXPECT_EQ(loaded(reload, kStarter), (Answer{-473, "", ""}));
    // The plug-in is looked for last, and the text of its code is empty.
    EXPECT_EQ(loaded(init, missing), (Answer{-498, "", ""}));
    ASSERT_EQ(loaded(init, kStarter + "/"), (Answer{0, "", ""}));
    EXPECT_EQ(loaded(init, missing), (Answer{-500, "", "pattern for VoleEngine has been loaded."}));
    EXPECT_EQ(loaded(reload, file), (Answer{-498, "", file + " isn't a valid pattern dir path."}));

    const TempDir bad;
    const std::string path = bad.path();
    EXPECT_EQ(loaded(reload, path), (Answer{-488, "", "fail to load pa list from " + path}));
    std::filesystem::create_symlink("/proc/self/mem", bad / "unreadable.hdb");
    EXPECT_EQ(
        loaded(reload, path),
        (Answer{-494, "", "fail to load pattern file: " + path + ", maybe this pattern file format is not valid."}));

    std::filesystem::create_directory(dir / "folder");
    ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
    ASSERT_EQ(::truncate(dir.write("huge", "").c_str(), off_t{0x7FFFFFFF} + 1), 0);
    for (const char* const name : {"missing", "folder", "fifo", "huge", "/dev/zero"}) {
        const std::string unfit = dir.path() / name;
        EXPECT_EQ(scan(unfit), (Answer{-493, "-", "fail to open file: " + unfit}));
    }
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
    const std::string path = dir.write("text", eicar() + "x");
    const TempDir other;  // Without signatures.
    other.write("pattern_assistant.xml", "<r><Spyware><i name='x'/></Spyware></r>");
    ASSERT_EQ(loaded(init, kStarter).result, 0);
    std::promise<void> scanning, goOn;
    listen(3, [&](const std::string& line) {
        if (line.find("chk scan iob") == std::string::npos) return;
        scanning.set_value();
        goOn.get_future().wait();
    });
    Answer answer{};
    std::thread scanner([&] { answer = scan(path); });
    scanning.get_future().wait();
    EXPECT_EQ(loaded(reload, other.path()).result, 0);
    EXPECT_EQ(loaded(reload, other.path()), (Answer{-472, "", "No idle container."}));
    goOn.set_value();
    scanner.join();
    listen(0);
    EXPECT_EQ(answer, (Answer{1, "Eicar-Test-Start", "-"})) << "from the signatures that it began with";
    EXPECT_EQ(scan(path), (Answer{0, "-", "-"}));
    EXPECT_EQ(loaded(reload, kStarter).result, 0) << "the slot is idle again";
}

TEST_F(Host, readsTheExportedState) {
    EXPECT_STREQ(getVersion(), "Vole Engine Version: 1.0.0.223");
    EXPECT_STREQ(vole_ini_fname, "voleeng.ini");
    EXPECT_EQ(heu_instance, nullptr);
    int extra = 7;
    EXPECT_EQ(checkSusVirus(1, &extra) + extra, 0);
    EXPECT_EQ(voleeng_debugger.level, 3);
    EXPECT_EQ(voleeng_debugger.print, &print);
    EXPECT_EQ(voleeng_debugger.dumpPath, "") << "setDebugger() takes two fields only";
    setDumpPath("/some/where");
    setDebugger(nullptr);
    EXPECT_EQ(voleeng_debugger.dumpPath, "/some/where");
    EXPECT_EQ(voleeng_debugger.level, 3);
    setDumpPath(nullptr);
    EXPECT_EQ(voleeng_debugger.dumpPath, "");

    std::vector<std::string> lines;
    const auto collect = [&](const std::string& line) { lines.push_back(line); };
    listen(1, collect);
    scan("/nowhere");
    EXPECT_STREQ(LogFileName, "pattern_assistant");
    EXPECT_EQ(LogLineNo, 1393);
    listen(3, collect);
    std::string virus = "-";
    EXPECT_EQ(checkSpam("", "short", 0, virus), 0);
    EXPECT_EQ(checkSpam("subject", "HotFix-12345.rar", 0xFFFFFFFF, virus), 1);
    EXPECT_EQ(virus, "W32.Email.W.Zhelatin.dj");
    EXPECT_EQ(lines,
              (std::vector<std::string>{"Can't open /nowhere",
                                        "[pattern_assistant:899] checkSpam, length of attachment must more than 9."}));
}

}  // namespace
