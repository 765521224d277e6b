// The vole program from the outside: what it prints and what it returns.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <vector>

#include "RunProgram.h"
#include "Sandbox.h"

namespace {

namespace fs = std::filesystem;

using Arguments = std::vector<std::string>;

ProgramResult vole(const Sandbox& box, Arguments arguments, const char* outPath = nullptr) {
    arguments.insert(arguments.begin(), VOLE_PROGRAM);
    return runProgram(arguments, box.dir(), outPath);
}

// ASCII only, and independent of the locale.
std::string mapLetters(std::string text, char first, char last, int distance) {
    for (char& c : text) c = c >= first && c <= last ? static_cast<char>(c + distance) : c;
    return text;
}
std::string lowerCased(const std::string& text) { return mapLetters(text, 'A', 'Z', 'a' - 'A'); }
std::string upperCased(const std::string& text) { return mapLetters(text, 'a', 'z', 'A' - 'a'); }

std::string withByteChanged(std::string text, std::size_t index) {
    text[index] ^= 1;
    return text;
}

struct ContentCase {
    const char* why;
    std::string content;
    const char* verdict;
};

const ContentCase kContents[] = {
    {"the bare test file", eicar(), "Eicar-Test-File FOUND"},
    {"saved by an editor", eicar() + "\n", "Eicar-Test-File FOUND"},
    {"saved by a DOS editor", eicar() + "\r\n", "Eicar-Test-File FOUND"},
    {"more text on the same line", eicar() + " and more", "Eicar-Test-Start FOUND"},
    {"binary data behind it", eicar() + std::string(100, '\0'), "Eicar-Test-Start FOUND"},
    {"indented, with blank lines around it", "\r\n\n \t" + eicar() + " \t\r\n\n", "Eicar-Test-Text FOUND"},
    {"lower-cased", lowerCased(eicar()), "Eicar-Test-Text FOUND"},
    {"lower-cased and indented", "    " + lowerCased(eicar()) + "\n", "Eicar-Test-Text FOUND"},
    {"upper-cased again", upperCased(lowerCased(eicar())), "Eicar-Test-File FOUND"},
    {"not at the start", "x" + eicar(), "OK"},
    {"first byte changed", withByteChanged(eicar(), 0), "OK"},
    {"last byte changed", withByteChanged(eicar(), eicar().size() - 1), "OK"},
    {"cut by one byte", eicar().substr(0, eicar().size() - 1), "OK"},
    {"an empty file", "", "OK"},
};

TEST(VoleScan, tellsTestFilesFromOthers) {
    const Sandbox box;
    for (const ContentCase& c : kContents) {
        SCOPED_TRACE(c.why);
        box.write("file", c.content);
        const ProgramResult result = vole(box, {"scan", "--no-summary", "file"});
        EXPECT_EQ(result.out, std::string("file: ") + c.verdict + "\n");
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, std::string(c.verdict) == "OK" ? 0 : 1);
    }
}

// What every row below finds in its working folder.
void fillSandbox(const Sandbox& box) {
    box.write("clean", "nothing here\n");
    box.write("bad", eicar());
    box.write("tree/deeper/bad", eicar());
    box.write("tree/clean", "");
    box.write("forged\nclean: OK\x1b[2K", "");
    box.write("[a,b]", "");
    box.write("{}", "");
    box.write("++", "");
    box.write("--debug", "");
    box.write("scan", "");
    fs::create_directory(box / "empty");
    box.write("only-lists/pattern_assistant.xml", "<l><Spyware><i name=\"x\"/></Spyware></l>");
    // The digest of the file "clean".
    box.write("own/own.hdb", "da2483a95bdf581f3a966cab73e607d6:13:Own-Name\n");
    fs::create_symlink("bad", box / "link");
    fs::create_symlink("tree", box / "folder-link");
    fs::create_symlink("../bad", box / "tree/link");
    ASSERT_EQ(::mkfifo((box / "fifo").c_str(), 0600), 0);
    ASSERT_EQ(::mkfifo((box / "tree/fifo").c_str(), 0600), 0);
}

struct CommandCase {
    const char* why;
    Arguments arguments;
    int status;
    const char* out;
    const char* errPart;  // must be somewhere on standard error; empty: nothing may be there
};

const CommandCase kCommands[] = {
    {"a clean file", {"scan", "clean"}, 0, "clean: OK\n", ""},
    {"a folder: links and special files in it are passed over",
     {"scan", "tree"},
     1,
     "tree/clean: OK\ntree/deeper/bad: Eicar-Test-File FOUND\n",
     ""},
    {"links named by the user are followed",
     {"scan", "link", "folder-link/"},
     1,
     "link: Eicar-Test-File FOUND\nfolder-link/clean: OK\nfolder-link/deeper/bad: Eicar-Test-File FOUND\n",
     ""},
    {"an empty folder", {"scan", "empty"}, 0, "", ""},
    {"only findings and errors",
     {"scan", "--infected", "clean", "bad", "missing"},
     1,
     "bad: Eicar-Test-File FOUND\nmissing: fail to open file: missing\n",
     ""},
    {"an error shows in the status when nothing was found",
     {"scan", "missing", "clean"},
     2,
     "missing: fail to open file: missing\nclean: OK\n",
     ""},
    {"a finding outweighs an error",
     {"scan", "missing", "bad"},
     1,
     "missing: fail to open file: missing\nbad: Eicar-Test-File FOUND\n",
     ""},
    {"a FIFO must not block", {"scan", "fifo"}, 2, "fifo: fail to open file: fifo\n", ""},
    {"a device", {"scan", "/dev/zero"}, 2, "/dev/zero: fail to open file: /dev/zero\n", ""},
    {"a name cannot forge lines", {"scan", "forged\nclean: OK\x1b[2K"}, 0, "forged\\nclean: OK\\x1b[2K: OK\n", ""},
    {"nor can it in an error text",
     {"scan", "gone\nclean: OK"},
     2,
     "gone\\nclean: OK: fail to open file: gone\\nclean: OK\n",
     ""},
    {"names that the option parser could take for its own",
     {"scan", "[a,b]", "{}", "++", "scan", "--", "--debug"},
     0,
     "./[a,b]: OK\n{}: OK\n./++: OK\nscan: OK\n./--debug: OK\n",
     ""},
    {"an empty name", {"scan", ""}, 2, ": fail to open file: \n", ""},
    {"patterns of one's own", {"scan", "-d", "own", "clean", "bad"}, 1, "clean: Own-Name FOUND\nbad: OK\n", ""},
    {"a pattern directory with a slash", {"scan", "--patterns", "own/", "clean"}, 1, "clean: Own-Name FOUND\n", ""},
    {"a missing pattern directory", {"scan", "-d", "gone", "bad"}, 2, "", "gone isn't a valid pattern dir path."},
    {"a file as pattern directory", {"scan", "-d", "bad", "bad"}, 2, "", "bad isn't a valid pattern dir path."},
    {"nothing loaded must not look clean", {"scan", "-d", "empty", "bad"}, 2, "", "no signatures in empty"},
    {"nor with lists alone", {"scan", "-d", "only-lists", "bad"}, 2, "", "no signatures in only-lists"},
    {"no path", {"scan"}, 2, "", "PATH is required"},
    {"an unknown option", {"scan", "--bogus", "clean"}, 2, "", "--bogus"},
    {"diagnostics go to standard error", {"scan", "--debug", "clean"}, 0, "clean: OK\n", "vole-engine, pattern [6]"},
};

TEST(VoleScan, reportsAndReturnsByTheTable) {
    const Sandbox box;
    fillSandbox(box);
    for (const CommandCase& c : kCommands) {
        SCOPED_TRACE(c.why);
        Arguments arguments = c.arguments;
        arguments.insert(arguments.begin() + 1, "--no-summary");
        const ProgramResult result = vole(box, arguments);
        EXPECT_EQ(result.status, c.status);
        EXPECT_EQ(result.out, c.out);
        if (*c.errPart == '\0') {
            EXPECT_EQ(result.err, "");
        } else {
            EXPECT_NE(result.err.find(c.errPart), std::string::npos) << result.err;
        }
    }
}

TEST(VoleScan, closesWithASummary) {
    const Sandbox box;
    fillSandbox(box);
    const ProgramResult result = vole(box, {"scan", "-i", "clean", "bad", "missing"});
    EXPECT_NE(result.out.find("\n\nSignatures: 6\nScanned:    2\nInfected:   1\nErrors:     1\nElapsed:    "),
              std::string::npos)
        << result.out;
}

TEST(VoleScan, treatsALostReportAsAnError) {
    const Sandbox box;
    fillSandbox(box);
    const ProgramResult clean = vole(box, {"scan", "clean"}, "/dev/full");
    EXPECT_EQ(clean.status, 2);
    EXPECT_EQ(clean.err, "vole: cannot write the report: No space left on device\n");
    EXPECT_EQ(vole(box, {"scan", "bad"}, "/dev/full").status, 1);
}

// More lines than one block of output holds.
TEST(VoleScan, losesNoLineOfALongReport) {
    const Sandbox box;
    constexpr int kFiles = 1500;
    for (int i = 0; i < kFiles; ++i) box.write("tree/" + std::string(60, 'n') + std::to_string(i), "");
    const ProgramResult result = vole(box, {"scan", "--no-summary", "tree"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), kFiles);
    EXPECT_GT(result.out.size(), 64u * 1024);
}

struct QuestionCase {
    Arguments arguments;
    int status;
    const char* outPart;
};

const QuestionCase kQuestions[] = {
    {{"--version"}, 0, "Vole Engine Version: 1.0.0.223"},
    {{"--help"}, 0, "scan"},
    {{"scan", "--help"}, 0, "Exit status: 0 nothing found, 1 something found, 2 errors and nothing found."},
    {{}, 2, ""},
    {{"bogus"}, 2, ""},
};

TEST(Vole, answersQuestionsAboutItself) {
    const Sandbox box;
    for (const QuestionCase& c : kQuestions) {
        SCOPED_TRACE(c.arguments.empty() ? "no arguments" : c.arguments.back());
        const ProgramResult result = vole(box, c.arguments);
        EXPECT_EQ(result.status, c.status);
        EXPECT_NE(result.out.find(c.outPart), std::string::npos) << result.out;
        EXPECT_EQ(result.err.empty(), c.status == 0) << result.err;
    }
    EXPECT_EQ(vole(box, {"--version"}, "/dev/full").status, 2);
}

}  // namespace
