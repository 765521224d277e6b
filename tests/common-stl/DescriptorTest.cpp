// What is opened on the library's own account is the owner's alone and not inherited by programs that the host starts.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <memory>
#include <string>

#include "FileLock.h"
#include "io/FileBufferBase.h"
#include "io/FileViewBufferBase.h"
#include "io/InputStream.h"
#include "io/OutputStream.h"
#include "support/TempDir.h"
#include "support/TempFile.h"

namespace ZOV_SPACE {
namespace {

TEST(Descriptors, areTheirOwnersAloneAndNotInherited) {
    const TempDir directory;
    const TempFile file;
    const std::string path = directory / "made";
    const std::function<std::shared_ptr<void>()> makers[] = {
        [&] { return std::make_shared<FileBufferBase>(); },
        [&] { return std::make_shared<FileBufferBase>(directory.path().c_str()); },
        [&] { return std::make_shared<FileViewBufferBase>(file.fd(), 0); },
        [&] { return std::make_shared<FileInputStream>(file.path()); },
        [&] { return std::make_shared<FileOutputStream>(path.c_str()); },
        [&] { return std::make_shared<FileLock>(path.c_str(), false); },
    };
    const mode_t mask = ::umask(0);
    for (const auto& make : makers) {
        ::unlink(path.c_str());
        const int fd = OwnFd(::open("/dev/null", O_RDONLY | O_CLOEXEC)).get();  // The next to be given.
        const auto opened = make();
        struct stat status {};
        EXPECT_EQ(::fstat(fd, &status), 0);
        EXPECT_EQ(::fcntl(fd, F_GETFD), FD_CLOEXEC) << &make - makers;
        EXPECT_EQ(status.st_mode & 07777, 0600u) << &make - makers;
    }
    ::umask(mask);
}

}  // namespace
}  // namespace ZOV_SPACE
