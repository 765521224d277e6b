// The vole program from the outside: what it prints and what it returns.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <utility>

#include "support/Eicar.h"
#include "support/TarRecipe.h"
#include "support/TempDir.h"
#include "support/ZipBuilder.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

// What every command of the transcript finds in its working folder.
void fillSandbox(const TempDir& box) {
    const ZipBuilder inner{{"empty", ""}, {"1", "one"}, {"/2/bad", eicar()}};
    const ZipBuilder nested{{"a", std::string(2 << 20, 'a')},
                            {"big", std::string(1 << 20, 'a')},
                            {"[x:1] UnarchiveOneFile: bb @", "looks like a line of the engine's"},
                            {"b/inner.zip", inner.archive()},
                            {"c", "more"}};
    const std::string ownRecord = "da2483a95bdf581f3a966cab73e607d6:13:Own-Name\n";
    const std::pair<const char*, std::string> files[] = {
        {"clean", "nothing here\n"},
        {"bad", eicar()},
        {"tree/deeper/bad", eicar()},
        {"nested.zip", nested.archive()},
        {"tower.zip", ZipBuilder{{"a", std::string(2 << 20, 'a')}, {"b", std::string(2 << 20, 'b')}}.archive()},
        {"twice.zip", ZipBuilder{{"bad", eicar()}, {"worse", eicar()}}.archive()},
        {"packed.tar.gz", gzipOf(tarEntry({{"name", "dir/bad"}, {"content", eicar()}}))},
        {"locked.zip",
         ZipBuilder{{.name = "secret", .content = "x", .flags = 1}, {.name = "odd", .content = "x", .method = 77}}
             .archive()},
        {"spoilt/x.hdb", "nonsense\n" + ownRecord + "zz2483a95bdf581f3a966cab73e607d6:13:Bad-Digest\n"},
        {"only-lists/pattern_assistant.xml", "<l><Spyware><i name=\"x\"/></Spyware></l>"},
        // The digests of the file "clean" and of the last member of nested.zip.
        {"odd/a.hdb", "#count:5\n" + ownRecord + ownRecord + "44d88612fea8a8f36de82e1278abb02f:0:Zero:x\n#count:7\n" +
                          "44d88612fea8a8f36de82e1278abb02f:6z:Nul\0x\n"s + std::string(1030, 'L') +
                          "\nda2483a9:1:Cut"},
        {"odd/b.hdb", "#count:1\n\n" + ownRecord.substr(0, 36) + "Other\n" + ownRecord},
        {"odd/c.chk",
         "00:0000:0000:44:58354f21:3ccf5168:0022:22:bc7cdfd7:A\n00:0000:0000:44:58354f21:3ccf5168:0022:22:bc7cdfd7:B\n"
         "07:0100:0003:2:58354f21:3ccf5168:ffff:0:bc7cdfd7:C\n00:0200:0003:2:58354f21:3ccf5168:0:0:bc7cdfd7:D\n"
         "00:0000:0000:zz:58354f21:3ccf5168:0022:22:bc7cdfd7:E\n00:0000:0000:44:58354f21:3ccf5168\n"},
        {"odd/voleeng.ini",
         "MaxUnarSize = 12\nMaxUnarSize=13\n Foo = 1\nMaxUnarDepth = x ; y\nMaxUnarRatio =\n; c\n"
         "MaxUnarEntries = 99999999999\n"},
        {"odd/pattern_assistant.xml", "<l><FalseAlarm><i name='a'/><i name='a'/></FalseAlarm></l>"},
        {"own/own.hdb", ownRecord + "addec426932e71323700afa1911f8f1c:4:Own-False\n"},
        {"own/pattern_assistant.xml", "<l><FalseAlarm><i name=\"own-FALSE\"/></FalseAlarm></l>"},
        {"own/voleeng.ini", "MaxUnarDepth=7\n"},
    };
    for (const auto& [name, content] : files) box.write(name, content);
    for (const char* name : {"tree/clean", "[a,b]", "{}", "++", "--debug", "scan", "huge"}) box.write(name, "");
    ASSERT_EQ(::truncate((box / "huge").c_str(), off_t{1} << 31), 0);
    fs::create_directory(box / "empty");
    fs::create_symlink("bad", box / "link");
    fs::create_symlink("tree", box / "folder-link");
    fs::create_symlink("../bad", box / "tree/link");
    for (const char* name : {"fifo", "tree/fifo"}) ASSERT_EQ(::mkfifo((box / name).c_str(), 0600), 0);
}

// What a shell in the sandbox writes for the command: standard output, the status, and each line of standard error.
std::string answerTo(const TempDir& box, const std::string& command) {
    const std::string script = "cd '" + box.path().string() + "'; vole() { '" VOLE_PROGRAM "' \"$@\"; }; ( " + command +
                               "\n) 2>.err; echo \"[$?]\"; sed 's/^/! /' .err";
    FILE* const shell = ::popen(script.c_str(), "r");
    std::string answer;
    for (int c; (c = std::fgetc(shell)) != EOF;) answer += static_cast<char>(c);
    ::pclose(shell);
    return answer;
}

TEST(Vole, answersAsInTheTranscript) {
    const TempDir box;
    fillSandbox(box);
    std::ifstream transcript(VOLE_TRANSCRIPT);
    ASSERT_TRUE(transcript);
    std::string why, command, expected;
    for (std::string line; std::getline(transcript, line);) {
        if (line.starts_with("# ")) {
            why = line;
        } else if (line.starts_with("$ ")) {
            command = line.substr(2);
        } else if (!line.empty()) {
            expected += line + "\n";
        } else if (!command.empty()) {
            EXPECT_EQ(answerTo(box, std::exchange(command, "")), std::exchange(expected, "")) << why;
        }
    }
    EXPECT_EQ(command, "") << "without an empty line behind it";
}

pid_t startScan(const TempDir& box, const char* path, int output) {
    const pid_t child = ::fork();
    if (child != 0) return child;
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) std::signal(signal, SIG_DFL);  // Not as nohup has them.
    const bool ready = ::dup2(output, 1) == 1 && ::chdir(box.path().c_str()) == 0;
    if (ready) ::execl(VOLE_PROGRAM, "vole", "scan", "-j1", path, nullptr);
    ::_exit(127);
}

// The report goes to a pipe that soon is full, so the program is in the middle of it when the signal comes. Its lines
// together are shorter than what is collected of those that are no findings.
TEST(VoleScan, writesFindingsAtOnceAndEndsWithThemBySignal) {
    const TempDir box;
    constexpr int kFiles = 400;
    for (int i = 0; i < kFiles; ++i) box.write("tree/" + std::string(60, 'n') + std::to_string(i), eicar());
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
        int pipe[2];
        ASSERT_EQ(::pipe(pipe), 0);
        ASSERT_EQ(::fcntl(pipe[0], F_SETPIPE_SZ, 4096), 4096);
        const pid_t child = startScan(box, "tree", pipe[1]);
        ::close(pipe[1]);
        pollfd report{pipe[0], POLLIN, 0};
        EXPECT_EQ(::poll(&report, 1, -1), 1);
        ::kill(child, signal);
        std::string out;
        for (char byte; ::read(pipe[0], &byte, 1) == 1;) out += byte;
        ::close(pipe[0]);
        int status = 0;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
        EXPECT_LT(std::count(out.begin(), out.end(), '\n'), kFiles);
        EXPECT_NE(out.find("\n\nSignatures: 6\n"), std::string::npos) << out;
    }
}

}  // namespace
