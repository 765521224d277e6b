#include "io/File.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "support/TempDir.h"

namespace ZOV_SPACE {
namespace {

struct FileTest : testing::Test {
    File at(const std::string& name) const { return File(top.path().string(), name); }

    TempDir top;
};

TEST(File, takesPathsApart) {
    for (const auto& [path, stored, parent, name] : {std::tuple{"/a", "/a", "/", "a"},
                                                     {"a/b//", "a/b", "a", "b"},
                                                     {"a", "a", "", "a"},
                                                     {"///", "/", "/", ""},
                                                     {"", "", "", ""}}) {
        const File file{std::string(path)};
        EXPECT_EQ(file.getPath(), stored);
        EXPECT_EQ(file.getParent(), parent) << path;
        EXPECT_EQ(file.getName(), name) << path;
    }
    EXPECT_EQ(File("/", "x").getPath(), "/x");
    EXPECT_FALSE(File(std::string("/tmp\0x", 6)).exists());
}

TEST_F(FileTest, tellsWhatIsThere) {
    top.write("file", "12345");
    std::filesystem::create_symlink("file", top / "link");
    std::filesystem::create_symlink("nowhere", top / "broken");
    ASSERT_EQ(::mkfifo(at("pipe").getPath().c_str(), 0600), 0);
    EXPECT_TRUE(at("link").isFile());
    EXPECT_EQ(at("link").length(), 5);
    EXPECT_FALSE(at("broken").exists());
    EXPECT_EQ(at("broken").length(), -1);
    EXPECT_TRUE(at("pipe").exists());
    EXPECT_FALSE(at("pipe").isFile());
    std::vector<std::string> names;
    EXPECT_TRUE(File(top.path().string()).list(names));
    EXPECT_EQ(names.size(), 4u) << "without . and ..";
    EXPECT_FALSE(at("pipe").list(names)) << "and does not wait for a writer";
    EXPECT_TRUE(at("a/b/c").mkdirs());
    EXPECT_TRUE(at("a/b/c").mkdirs()) << "already there";
    EXPECT_FALSE(at("file/d").mkdirs());
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_FALSE(at("a").remove()) << "not empty";
}

TEST_F(FileTest, removeAllLeavesWhatLinksPointTo) {
    ASSERT_TRUE(at("kept").mkdir());
    top.write("kept/file", "x");
    ASSERT_TRUE(at("tree/deep").mkdirs());
    top.write("tree/deep/file", "x");
    for (const char* link : {"tree/deep/link", "top"}) std::filesystem::create_symlink(top / "kept", top / link);
    EXPECT_TRUE(at("tree").removeAll());
    EXPECT_FALSE(at("tree").exists());
    EXPECT_TRUE(at("top/").removeAll());
    EXPECT_FALSE(at("top").exists());
    EXPECT_TRUE(at("kept/file").exists());
    for (const char* refused : {"kept/.", "kept/..", "kept/./"}) EXPECT_FALSE(at(refused).removeAll()) << refused;
    EXPECT_FALSE(File("/").removeAll());
    EXPECT_TRUE(at("kept/file").exists());
}

TEST_F(FileTest, removeAllStopsAtItsDepth) {
    std::string path = "tree";
    for (std::size_t level = 1; level < File::kMaxRemoveDepth; ++level) path += "/d";
    ASSERT_TRUE(at(path + "/d").mkdirs());
    top.write("tree/file", "x");
    EXPECT_FALSE(at("tree").removeAll());
    EXPECT_EQ(errno, ELOOP);
    EXPECT_FALSE(at("tree/file").exists()) << "what can be removed is";
}

}  // namespace
}  // namespace ZOV_SPACE
