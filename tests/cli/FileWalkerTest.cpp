#include "FileWalker.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <vector>

#include "support/TempDir.h"

namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

// The paths relative to the sandbox, those with an error followed by it.
Names walk(const TempDir& box, const std::string& root) {
    Names names;
    const WalkRules rules;
    FileWalker walker(root, rules);
    const std::string top = box / "";
    while (walker.next()) {
        const std::string& path = walker.path();
        const std::string name = path.starts_with(top) ? path.substr(top.size()) : path;
        names.push_back(walker.error().empty() ? name : name + ": " + walker.error());
    }
    EXPECT_FALSE(walker.next());
    return names;
}

TEST(FileWalker, goesThroughFoldersInByteOrder) {
    const TempDir box;
    for (const char* name : {"b", "a/2", "a/10", "B", "a.txt", "c/d/e"}) box.write(name, "");
    ASSERT_EQ(::mkfifo((box / "fifo").c_str(), 0600), 0);
    fs::create_symlink(".", box / "a/loop");
    fs::create_symlink("2", box / "a/link");
    fs::create_symlink("a", box / "root");
    EXPECT_EQ(walk(box, box.path().string() + "//"), (Names{"B", "a/10", "a/2", "a.txt", "b", "c/d/e"}));
    EXPECT_EQ(walk(box, box / "root"), (Names{"root/10", "root/2"}));
    for (const std::string root : {"a/link", "fifo", "missing"}) EXPECT_EQ(walk(box, box / root), Names{root});
}

// Makes `levels` folders called `name`, each in the one before, with a file in the last one. Paths of any length.
void makeDeepTree(const fs::path& top, const std::string& name, int levels) {
    const fs::path before = fs::current_path();
    fs::create_directory(top);
    fs::current_path(top);
    for (int i = 0; i < levels; ++i) {
        fs::create_directory(name);
        fs::current_path(name);
    }
    std::ofstream("file").close();
    fs::current_path(before);
}

TEST(FileWalker, survivesAThousandLevelsAndReportsAFolderThatCannotBeOpened) {
    const TempDir box;
    makeDeepTree(box / "deep", "d", 1000);
    makeDeepTree(box / "long", std::string(200, 'd'), 30);
    box.write("z", "");
    const Names names = walk(box, box.path());
    ASSERT_EQ(names.size(), 3u);
    EXPECT_EQ(names[0].size(), std::string("deep/").size() + 2 * 1000 + std::string("file").size());
    EXPECT_TRUE(names[1].ends_with(": cannot read the folder: File name too long")) << names[1];
    EXPECT_EQ(names[2], "z");
}

}  // namespace
