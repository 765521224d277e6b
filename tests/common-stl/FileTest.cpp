#include "io/File.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>

namespace ZOV_SPACE {
namespace {

class FileTest : public testing::Test {
protected:
    FileTest() {
        char directory[] = "/tmp/voleXXXXXX";
        if (::mkdtemp(directory)) _top = directory;
    }
    ~FileTest() override { EXPECT_TRUE(File(_top).removeAll()); }

    File at(const std::string& name) const { return File(_top, name); }

    void write(const std::string& name, const std::string& content) const {
        const OwnFd fd(::open(at(name).getPath().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        ASSERT_EQ(::write(fd.get(), content.data(), content.size()), static_cast<ssize_t>(content.size()));
    }

    std::string _top;
};

TEST(File, takesPathsApart) {
    struct Case {
        const char *path, *stored, *parent, *name;
    };
    const Case cases[] = {
        {"/a/b", "/a/b", "/a", "b"}, {"/a", "/a", "/", "a"}, {"a/b//", "a/b", "a", "b"},  {"a", "a", "", "a"},
        {"///", "/", "/", ""},       {"", "", "", ""},       {"/a/.", "/a/.", "/a", "."}, {"./a", "./a", ".", "a"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        const File file{std::string(c.path)};
        EXPECT_EQ(file.getPath(), c.stored);
        EXPECT_EQ(file.getParent(), c.parent);
        EXPECT_EQ(file.getName(), c.name);
    }
    EXPECT_EQ(File("/", "x").getPath(), "/x");
    EXPECT_FALSE(File(std::string("/tmp\0x", 6)).exists());
}

TEST_F(FileTest, tellsWhatIsThere) {
    write("file", "12345");
    ASSERT_EQ(::symlink("file", at("link").getPath().c_str()), 0);
    ASSERT_EQ(::symlink("nowhere", at("broken").getPath().c_str()), 0);
    ASSERT_EQ(::mkfifo(at("pipe").getPath().c_str(), 0600), 0);
    struct Case {
        const char* name;
        bool exists, isFile, isDirectory;
    };
    for (const Case& c :
         {Case{"file", true, true, false}, Case{"link", true, true, false}, Case{"broken", false, false, false},
          Case{"pipe", true, false, false}, Case{"", true, false, true}, Case{"missing", false, false, false}}) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(at(c.name).exists(), c.exists);
        EXPECT_EQ(at(c.name).isFile(), c.isFile);
        EXPECT_EQ(at(c.name).isDirectory(), c.isDirectory);
    }
    EXPECT_EQ(at("link").length(), 5);
    EXPECT_EQ(at("missing").length(), -1);

    std::vector<std::string> names;
    EXPECT_TRUE(File(_top).list(names));
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"broken", "file", "link", "pipe"}));
    EXPECT_FALSE(at("file").list(names));
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_TRUE(names.empty());
    EXPECT_FALSE(at("pipe").list(names)) << "and does not wait for a writer";
}

TEST_F(FileTest, createsMovesAndRemoves) {
    EXPECT_FALSE(at("a/b").mkdir());
    EXPECT_TRUE(at("a/b/c").mkdirs());
    EXPECT_TRUE(at("a/b/c").mkdirs()) << "already there";
    write("file", "x");
    EXPECT_FALSE(at("file/d").mkdirs());
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_TRUE(at("file").renameTo(at("a/moved")));
    EXPECT_FALSE(at("file").exists());
    EXPECT_TRUE(at("a/moved").remove());
    EXPECT_FALSE(at("a").remove()) << "not empty";
    EXPECT_TRUE(at("a/b/c").remove());
}

TEST_F(FileTest, removeAllLeavesWhatLinksPointTo) {
    ASSERT_TRUE(at("kept").mkdir());
    write("kept/file", "x");
    ASSERT_TRUE(at("tree/deep").mkdirs());
    write("tree/deep/file", "x");
    for (const char* link : {"tree/deep/link", "top"}) {
        ASSERT_EQ(::symlink(at("kept").getPath().c_str(), at(link).getPath().c_str()), 0);
    }
    EXPECT_TRUE(at("tree").removeAll());
    EXPECT_FALSE(at("tree").exists());
    EXPECT_TRUE(at("top/").removeAll());
    EXPECT_FALSE(at("top").exists());
    EXPECT_TRUE(at("kept/file").exists());
    for (const char* refused : {"kept/.", "kept/..", "kept/./"}) EXPECT_FALSE(at(refused).removeAll()) << refused;
    EXPECT_FALSE(File("/").removeAll());
    EXPECT_FALSE(File("").removeAll());
    EXPECT_FALSE(at("missing").removeAll());
    EXPECT_TRUE(at("kept/file").exists());
}

TEST_F(FileTest, removeAllStopsAtItsDepth) {
    std::string path = "tree";
    for (std::size_t level = 1; level < File::kMaxRemoveDepth; ++level) path += "/d";
    ASSERT_TRUE(at(path + "/d").mkdirs());
    write("tree/file", "x");
    EXPECT_FALSE(at("tree").removeAll());
    EXPECT_EQ(errno, ELOOP);
    EXPECT_FALSE(at("tree/file").exists()) << "what can be removed is";
    EXPECT_TRUE(at(path + "/d").remove());
    EXPECT_TRUE(at("tree").removeAll());
}

TEST(File, createsTemporaryFiles) {
    std::string first, second;
    const OwnFd one = File::createTemporary(first, "vole"), two = File::createTemporary(second, "vole");
    ASSERT_TRUE(one && two);
    EXPECT_NE(first, second);
    EXPECT_EQ(first.substr(0, 9), "/tmp/vole");
    EXPECT_TRUE(File(first).remove());
    EXPECT_TRUE(File(second).remove());
    EXPECT_FALSE(File::createTemporary(first, "no-such-directory/"));
    EXPECT_EQ(first, "");
}

}  // namespace
}  // namespace ZOV_SPACE
