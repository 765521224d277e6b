// The vole program from the outside: what it prints and what it returns.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <tuple>
#include <vector>

#include "Sandbox.h"
#include "support/Eicar.h"
#include "support/ZipBuilder.h"

namespace {

namespace fs = std::filesystem;

using Arguments = std::vector<std::string>;

struct Result {
    int status;
    std::string out, err;
};

// Runs the program in the sandbox. `outPath`: the file that standard output goes to; it is read when it is the default.
Result vole(const Sandbox& box, Arguments arguments, const char* outPath = "out") {
    arguments.insert(arguments.begin(), VOLE_PROGRAM);
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    const TempDir output;
    const std::string out = (output.path() / outPath).string(), err = (output / "err").string();
    const pid_t child = ::fork();
    if (child == 0) {
        constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC;
        const bool ready = ::chdir(box.dir().c_str()) == 0 && ::dup2(::open(out.c_str(), kFlags, 0600), 1) == 1 &&
                           ::dup2(::open(err.c_str(), kFlags, 0600), 2) == 2;
        if (ready) ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, TempDir::contentOf(output / "out"), TempDir::contentOf(err)};
}

// What every row below finds in its working folder.
void fillSandbox(const Sandbox& box) {
    const ZipBuilder inner{{"empty", ""}, {"1", "one"}, {"/2/bad", eicar()}};
    const ZipBuilder nested{{"a", std::string(2 << 20, 'a')},
                            {"big", std::string(1 << 20, 'a')},
                            {"[x:1] UnarchiveOneFile: bb @", "looks like a line of the engine's"},
                            {"b/inner.zip", inner.archive()},
                            {"c", "more"}};
    const std::pair<const char*, std::string> files[] = {
        {"clean", "nothing here\n"},
        {"bad", eicar()},
        {"tree/deeper/bad", eicar()},
        {"nested.zip", nested.archive()},
        {"only-lists/pattern_assistant.xml", "<l><Spyware><i name=\"x\"/></Spyware></l>"},
        // The digest of the file "clean".
        {"own/own.hdb", "da2483a95bdf581f3a966cab73e607d6:13:Own-Name\n"},
        {"own/voleeng.ini", "MaxUnarDepth=7\n"},
    };
    for (const auto& [name, content] : files) box.write(name, content);
    for (const char* name : {"tree/clean", "[a,b]", "{}", "++", "--debug", "scan"}) box.write(name, "");
    fs::create_directory(box / "empty");
    fs::create_symlink("bad", box / "link");
    fs::create_symlink("tree", box / "folder-link");
    fs::create_symlink("../bad", box / "tree/link");
    for (const char* name : {"fifo", "tree/fifo"}) ASSERT_EQ(::mkfifo((box / name).c_str(), 0600), 0);
}

struct CommandCase {
    const char* why;
    Arguments arguments;  // Of the scan, besides --no-summary.
    int status;
    const char* out;
    const char* errPart = "";  // must be somewhere on standard error; empty: nothing may be there
};

const CommandCase kCommands[] = {
    {"a clean file", {"clean"}, 0, "clean: OK\n"},
    {"links and special files in folders are passed over, links named by the user are followed",
     {"tree", "link", "folder-link/"},
     1,
     "tree/clean: OK\ntree/deeper/bad: Eicar-Test-File FOUND\nlink: Eicar-Test-File FOUND\n"
     "folder-link/clean: OK\nfolder-link/deeper/bad: Eicar-Test-File FOUND\n"},
    {"the member found, behind some that limits keep out",
     {"nested.zip"},
     1,
     "nested.zip: Eicar-Test-File in b/inner.zip/2/bad FOUND\n"},
    {"the limits in force",
     {"--limits", "-d", "own", "bad"},
     0,
     "MaxUnarEntries      = 100\nMaxUnarRatio        = 250\nMaxUnarLevelEntries = 50\n"
     "MaxUnarDepth        = 7\nMaxUnarSize         = 1048576 bytes\nbad: OK\n"},
    {"only findings and errors",
     {"--infected", "clean", "bad", "missing"},
     1,
     "bad: Eicar-Test-File FOUND\nmissing: fail to open file: missing\n"},
    {"a FIFO must not block", {"fifo", "clean"}, 2, "fifo: fail to open file: fifo\nclean: OK\n"},
    {"a name cannot forge lines, nor can it in an error text",
     {"gone\nclean: OK"},
     2,
     "gone\\nclean: OK: fail to open file: gone\\nclean: OK\n"},
    {"names that the option parser could take for its own",
     {"[a,b]", "{}", "++", "scan", "--", "--debug"},
     0,
     "./[a,b]: OK\n{}: OK\n./++: OK\nscan: OK\n./--debug: OK\n"},
    {"an empty name", {""}, 2, ": fail to open file: \n"},
    {"patterns of one's own", {"-d", "own", "clean", "bad"}, 1, "clean: Own-Name FOUND\nbad: OK\n"},
    {"a missing pattern directory", {"-d", "gone", "bad"}, 2, "", "gone isn't a valid pattern dir path."},
    {"nothing loaded must not look clean", {"-d", "empty", "bad"}, 2, "", "no signatures in empty"},
    {"nor with lists alone", {"-d", "only-lists", "bad"}, 2, "", "no signatures in only-lists"},
    {"no path", {}, 2, "", "PATH is required"},
    {"an unknown option", {"--bogus", "clean"}, 2, "", "--bogus"},
    {"diagnostics go to standard error", {"--debug", "clean"}, 0, "clean: OK\n", "vole-engine, pattern [6]"},
};

TEST(VoleScan, reportsAndReturnsByTheTable) {
    const Sandbox box;
    fillSandbox(box);
    for (const CommandCase& c : kCommands) {
        SCOPED_TRACE(c.why);
        Arguments arguments{"scan", "--no-summary"};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        const Result result = vole(box, arguments);
        EXPECT_EQ(result.status, c.status);
        EXPECT_EQ(result.out, c.out);
        EXPECT_EQ(result.err.empty(), *c.errPart == '\0') << result.err;
        EXPECT_NE(result.err.find(c.errPart), std::string::npos) << result.err;
    }
}

TEST(VoleScan, closesWithASummaryAndTreatsALostReportAsAnError) {
    const Sandbox box;
    fillSandbox(box);
    const std::string out = vole(box, {"scan", "-i", "clean", "bad", "missing"}).out;
    const char* const summary = "\n\nSignatures: 6\nScanned:    2\nInfected:   1\nErrors:     1\nElapsed:    ";
    EXPECT_NE(out.find(summary), std::string::npos) << out;
    const Result clean = vole(box, {"scan", "clean"}, "/dev/full");
    EXPECT_EQ(clean.status, 2);
    EXPECT_EQ(clean.err, "vole: cannot write the report: No space left on device\n");
    EXPECT_EQ(vole(box, {"scan", "bad"}, "/dev/full").status, 1);
}

// More lines than one block of output holds.
TEST(VoleScan, losesNoLineOfALongReport) {
    const Sandbox box;
    constexpr int kFiles = 1500;
    for (int i = 0; i < kFiles; ++i) box.write("tree/" + std::string(60, 'n') + std::to_string(i), "");
    const Result result = vole(box, {"scan", "--no-summary", "tree"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), kFiles);
    EXPECT_GT(result.out.size(), 64u * 1024);
}

TEST(Vole, answersQuestionsAboutItself) {
    const std::tuple<Arguments, int, const char*> cases[] = {
        {{"--version"}, 0, "Vole Engine Version: 1.0.0.223"},
        {{"scan", "--help"}, 0, "Exit status: 0 nothing found, 1 something found, 2 errors and nothing found."},
        {{}, 2, ""},
        {{"bogus"}, 2, ""},
    };
    const Sandbox box;
    for (const auto& [arguments, status, outPart] : cases) {
        const Result result = vole(box, arguments);
        EXPECT_EQ(result.status, status) << outPart;
        EXPECT_NE(result.out.find(outPart), std::string::npos) << result.out;
        EXPECT_EQ(result.err.empty(), status == 0) << result.err;
    }
}

}  // namespace
