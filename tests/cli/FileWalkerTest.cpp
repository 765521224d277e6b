#include "FileWalker.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "Sandbox.h"

namespace {

namespace fs = std::filesystem;

struct Walked {
    std::vector<std::string> files;
    std::vector<std::string> errors;
};

// Paths are given back relative to `base`.
Walked walk(const std::string& root, const std::string& base) {
    Walked walked;
    FileWalker walker(root);
    while (walker.next()) {
        const bool below = walker.path().starts_with(base + "/");
        const std::string name = below ? walker.path().substr(base.size() + 1) : walker.path();
        walker.error().empty() ? walked.files.push_back(name) : walked.errors.push_back(name + ": " + walker.error());
    }
    return walked;
}

using Names = std::vector<std::string>;

TEST(FileWalker, goesThroughFoldersInByteOrder) {
    const Sandbox box;
    for (const char* name : {"b", "a/2", "a/10", "B", "a.txt", "c/d/e"}) box.write(name, "");
    fs::create_directory(box / "empty");
    const Walked walked = walk(box.dir(), box.dir());
    EXPECT_EQ(walked.files, (Names{"B", "a/10", "a/2", "a.txt", "b", "c/d/e"}));
    EXPECT_EQ(walked.errors, Names{});
}

TEST(FileWalker, followsLinksOnlyAtTheRoot) {
    const Sandbox box;
    box.write("tree/file", "");
    fs::create_symlink(".", box / "tree/loop");
    fs::create_symlink("file", box / "tree/link");
    fs::create_symlink("tree", box / "root");
    EXPECT_EQ(walk(box / "root", box.dir()).files, Names{"root/file"});
    EXPECT_EQ(walk(box / "tree/link", box.dir()).files, Names{"tree/link"});
}

TEST(FileWalker, skipsSpecialFilesBelowButHandsThemOutAsRoots) {
    const Sandbox box;
    ASSERT_EQ(::mkfifo((box / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(walk(box.dir(), box.dir()).files, Names{});
    EXPECT_EQ(walk(box / "fifo", box.dir()).files, Names{"fifo"});
    EXPECT_EQ(walk(box / "missing", box.dir()).files, Names{"missing"});
}

TEST(FileWalker, keepsTheRootAsItWasTyped) {
    const Sandbox box;
    box.write("f", "");
    FileWalker walker(box.dir() + "//");
    ASSERT_TRUE(walker.next());
    EXPECT_EQ(walker.path(), box / "f");
    EXPECT_FALSE(walker.next());
    EXPECT_FALSE(walker.next());
}

// Makes `levels` folders called `name`, each in the one before, with a file in the last one. Paths of any length.
void makeDeepTree(const std::string& top, const std::string& name, int levels) {
    int dir = ::open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int i = 0; i < levels; ++i) {
        ASSERT_EQ(::mkdirat(dir, name.c_str(), 0700), 0);
        const int next = ::openat(dir, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ASSERT_GE(next, 0);
        ::close(dir);
        dir = next;
    }
    const int file = ::openat(dir, "file", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    EXPECT_GE(file, 0);
    ::close(file);
    ::close(dir);
}

TEST(FileWalker, survivesAThousandLevels) {
    const Sandbox box;
    makeDeepTree(box.dir(), "d", 1000);
    const Walked walked = walk(box.dir(), box.dir());
    ASSERT_EQ(walked.files.size(), 1u);
    EXPECT_EQ(walked.files[0].size(), 2 * 1000 + std::string("file").size());
}

TEST(FileWalker, reportsAFolderThatCannotBeOpenedAndGoesOn) {
    const Sandbox box;
    makeDeepTree(box.dir(), std::string(200, 'd'), 30);
    box.write("z", "");
    const Walked walked = walk(box.dir(), box.dir());
    EXPECT_EQ(walked.files, Names{"z"});
    ASSERT_EQ(walked.errors.size(), 1u);
    EXPECT_TRUE(walked.errors[0].ends_with(": cannot read the folder: File name too long")) << walked.errors[0];
}

}  // namespace
