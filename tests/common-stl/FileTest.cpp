#include "io/File.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <functional>
#include <iterator>
#include <map>
#include <string>

#include "io/FileBufferBase.h"
#include "io/FileIo.h"
#include "io/InputStream.h"
#include "support/Content.h"
#include "support/GoldenRows.h"
#include "unused/FileLock.h"
#include "unused/OutputStreams.h"

namespace ZOV_SPACE {
namespace {

TEST(Files, areTreatedAsTheirRowsSay) {
    namespace fs = std::filesystem;
    const TempDir top;
    for (const char* file : {"file", "kept/file", "tree/file"}) top.write(file, "12345");
    for (const char* link : {"link", "tree/link"}) fs::create_symlink("file", top / link);
    for (const char* link : {"top", "tree/folder"}) fs::create_symlink(top / "kept", top / link);
    fs::create_symlink("nowhere", top / "broken");
    fs::permissions(top / "file", fs::perms{0600});
    ASSERT_EQ(::mkfifo((top / "pipe").c_str(), 0600), 0);
    std::vector<std::string> names;
    const std::map<std::string, std::function<std::int64_t(const File&)>> operations = {
        {"exists", &File::exists},
        {"isFile", &File::isFile},
        {"length", &File::length},
        {"mkdirs", &File::mkdirs},
        {"remove", &File::remove},
        {"removeAll", &File::removeAll},
        {"lock", [](const File& file) { return FileLock(file.getPath().c_str(), false).isValid(); }},
        {"share", [](const File& file) { return FileLock(file.getPath().c_str(), true).isValid(); }},
        {"mode",
         [](const File& file) { return static_cast<int>(std::filesystem::status(file.getPath()).permissions()); }},
        {"list", [&](const File& file) { return file.list(names) ? std::ssize(names) : -1; }},
    };
    for (const GoldenRow& row : goldenRows(VOLE_FILES, "file")) {
        EXPECT_EQ(operations.at(row[0])(File(top.path().string(), row[1])), std::stoi(row[2])) << row[0] << row[1];
        EXPECT_TRUE(row[3] == "0" || std::stoi(row[3]) == errno) << errno;
    }
    EXPECT_FALSE(File("/").removeAll() || File(std::string("/tmp\0x", 6)).exists());
}

TEST(FileLock, isSeenByOthers) {
    const TempFile file;
    FileLock lock(file.path(), true);
    const auto lockSeen = [&] {
        struct flock record {};
        record.l_type = F_WRLCK;
        EXPECT_EQ(::fcntl(file.fd(), F_OFD_GETLK, &record), 0);
        return record.l_type;
    };
    EXPECT_EQ(lock.lock(), 0);
    EXPECT_EQ(lockSeen(), F_WRLCK);
    EXPECT_EQ(lock.unlock(), 0);
    EXPECT_EQ(lockSeen(), F_UNLCK);
    EXPECT_EQ(lock.close(), 0);
    EXPECT_EQ(lock.close(), -1);
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
