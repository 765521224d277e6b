// What is opened on the library's own account is the owner's alone and not inherited by programs that the host starts.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <memory>
#include <string>

#include "FileLock.h"
#include "io/File.h"
#include "io/FileBufferBase.h"
#include "io/FileViewBufferBase.h"
#include "io/InputStream.h"
#include "io/OutputStream.h"
#include "support/TempDir.h"
#include "support/TempFile.h"

namespace ZOV_SPACE {
namespace {

// The number that the next descriptor will get: the lowest free one.
int nextDescriptor() { return OwnFd(::open("/dev/null", O_RDONLY | O_CLOEXEC)).get(); }

TEST(Descriptors, areTheirOwnersAloneAndNotInherited) {
    const TempDir directory;
    const TempFile file;
    const std::string path = directory / "made", folder = directory.path();
    struct Case {
        const char* why;
        std::function<std::shared_ptr<void>()> make;
    };
    const Case cases[] = {
        {"anonymous file", [&] { return std::make_shared<FileBufferBase>(); }},
        {"named file", [&] { return std::make_shared<FileBufferBase>(folder.c_str()); }},
        {"reopened file",
         [&] {
             const auto buffer = std::make_shared<FileBufferBase>(folder.c_str());
             buffer->close();
             ::unlink(buffer->getPath().c_str());
             buffer->open();
             return buffer;
         }},
        {"viewed file", [&] { return std::make_shared<FileViewBufferBase>(file.fd(), 0); }},
        {"input", [&] { return std::make_shared<FileInputStream>(file.path()); }},
        {"output", [&] { return std::make_shared<FileOutputStream>(path.c_str()); }},
        {"lock", [&] { return std::make_shared<FileLock>(path.c_str(), false); }},
        {"temporary file",
         [&] {
             std::string name;
             const auto made = std::make_shared<OwnFd>(File::createTemporary(name, "vole"));
             ::unlink(name.c_str());
             return made;
         }},
    };
    const mode_t mask = ::umask(0);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        ::unlink(path.c_str());
        const int fd = nextDescriptor();
        const auto opened = c.make();
        const int flags = ::fcntl(fd, F_GETFD);
        struct stat status {};
        EXPECT_EQ(::fstat(fd, &status), 0);
        EXPECT_EQ(flags, FD_CLOEXEC);
        EXPECT_EQ(status.st_mode & 07777, 0600u);
    }
    ::umask(mask);
}

}  // namespace
}  // namespace ZOV_SPACE
