#include "FileWalker.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "Sandbox.h"

namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

// The paths relative to the sandbox, those with an error followed by it.
Names walk(const Sandbox& box, const std::string& root) {
    Names names;
    FileWalker walker(root);
    while (walker.next()) {
        const std::string& path = walker.path();
        const std::string name = path.starts_with(box / "") ? path.substr(box.dir().size() + 1) : path;
        names.push_back(walker.error().empty() ? name : name + ": " + walker.error());
    }
    EXPECT_FALSE(walker.next());
    return names;
}

TEST(FileWalker, goesThroughFoldersInByteOrder) {
    const Sandbox box;
    for (const char* name : {"b", "a/2", "a/10", "B", "a.txt", "c/d/e"}) box.write(name, "");
    ASSERT_EQ(::mkfifo((box / "fifo").c_str(), 0600), 0);
    fs::create_symlink(".", box / "a/loop");
    fs::create_symlink("2", box / "a/link");
    fs::create_symlink("a", box / "root");
    EXPECT_EQ(walk(box, box.dir() + "//"), (Names{"B", "a/10", "a/2", "a.txt", "b", "c/d/e"}));
    EXPECT_EQ(walk(box, box / "root"), (Names{"root/10", "root/2"}));
    for (const std::string root : {"a/link", "fifo", "missing"}) EXPECT_EQ(walk(box, box / root), Names{root});
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

TEST(FileWalker, survivesAThousandLevelsAndReportsAFolderThatCannotBeOpened) {
    const Sandbox box;
    fs::create_directories(box / "deep");
    fs::create_directories(box / "long");
    makeDeepTree(box / "deep", "d", 1000);
    makeDeepTree(box / "long", std::string(200, 'd'), 30);
    box.write("z", "");
    const Names names = walk(box, box.dir());
    ASSERT_EQ(names.size(), 3u);
    EXPECT_EQ(names[0].size(), std::string("deep/").size() + 2 * 1000 + std::string("file").size());
    EXPECT_TRUE(names[1].ends_with(": cannot read the folder: File name too long")) << names[1];
    EXPECT_EQ(names[2], "z");
}

}  // namespace
