#include "io/File.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "io/FileBufferBase.h"
#include "io/FileIo.h"
#include "io/InputStream.h"
#include "support/TempDir.h"
#include "unused/FileLock.h"
#include "unused/OutputStreams.h"

namespace ZOV_SPACE {
namespace {

namespace fs = std::filesystem;

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
    EXPECT_FALSE(File(std::string("/tmp\0x", 6)).exists());
}

TEST_F(FileTest, tellsWhatIsThere) {
    top.write("file", "12345");
    fs::create_symlink("file", top / "link");
    fs::create_symlink("nowhere", top / "broken");
    ASSERT_EQ(::mkfifo(at("pipe").getPath().c_str(), 0600), 0);
    EXPECT_TRUE(at("link").isFile() && at("link").length() == 5);
    EXPECT_TRUE(!at("broken").exists() && at("broken").length() == -1);
    EXPECT_FALSE(at("pipe").isFile());
    std::vector<std::string> names;
    EXPECT_TRUE(File(top.path().string()).list(names));
    EXPECT_EQ(names.size(), 4u) << "without . and ..";
    EXPECT_FALSE(at("pipe").list(names)) << "and does not wait for a writer";
    for (int turn = 0; turn < 2; ++turn) EXPECT_TRUE(at("a/b/c").mkdirs()) << turn;
    EXPECT_FALSE(at("file/d").mkdirs());
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_FALSE(at("a").remove()) << "not empty";
}

TEST_F(FileTest, removeAllLeavesWhatLinksPointToAndStopsAtItsDepth) {
    std::string deep = "tree";
    for (std::size_t level = 1; level < File::kMaxRemoveDepth; ++level) deep += "/d";
    ASSERT_TRUE(at("kept").mkdirs() && at(deep + "/d").mkdirs());
    for (const char* file : {"kept/file", "tree/file"}) top.write(file, "x");
    for (const char* link : {"tree/link", "top"}) fs::create_symlink(top / "kept", top / link);
    EXPECT_FALSE(at("tree").removeAll());
    EXPECT_EQ(errno, ELOOP);
    EXPECT_FALSE(at("tree/file").exists()) << "what can be removed is";
    ASSERT_TRUE(at(deep + "/d").remove());
    for (const char* name : {"tree", "top/"}) EXPECT_TRUE(at(name).removeAll() && !at(name).exists()) << name;
    for (const char* refused : {"kept/.", "kept/..", "kept/./"}) EXPECT_FALSE(at(refused).removeAll()) << refused;
    EXPECT_FALSE(File("/").removeAll());
    EXPECT_TRUE(at("kept/file").exists());
}

// What is opened on the library's own account is the owner's alone and not inherited by programs that the host starts.
TEST(Descriptors, areTheirOwnersAloneAndNotInherited) {
    const TempDir directory;
    const std::string path = directory / "made", lock = directory / "lock";
    const mode_t mask = ::umask(0);
    const int first = OwnFd(::open("/dev/null", O_RDONLY | O_CLOEXEC)).get();  // The next to be given.
    const OwnFd anonymous = createAnonymousFile();
    const FileBufferBase named(directory.path().c_str());
    const FileOutputStream output(path.c_str());
    const FileInputStream input(path.c_str());
    const FileLock locked(lock.c_str(), false);
    ::umask(mask);
    for (int fd = first; fd < first + 5; ++fd) {
        struct stat status {};
        EXPECT_EQ(::fstat(fd, &status), 0);
        EXPECT_EQ(::fcntl(fd, F_GETFD), FD_CLOEXEC) << fd - first;
        EXPECT_EQ(status.st_mode & 07777, 0600u) << fd - first;
    }
}

}  // namespace
}  // namespace ZOV_SPACE
