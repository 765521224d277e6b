#include "Progress.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>

namespace {

TEST(Progress, fitsIntoTheLineAndLeavesNothing) {
    ::setenv("TERM", "xterm", 1);
    const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_TRUE(master >= 0 && ::grantpt(master) == 0 && ::unlockpt(master) == 0);
    const int terminal = ::open(::ptsname(master), O_RDWR | O_NOCTTY);
    const winsize size{24, 60, 0, 0};
    ::ioctl(terminal, TIOCSWINSZ, &size);
    {
        Progress progress(true, terminal);
        progress.known(9, 5'000'000);
        progress.done(0, 1);
        progress.started(std::string(99, '/') + "\u6f22\u6f22\u6f22\x1b");
        ::usleep(1'100'000);
        progress.withoutLine([&] { EXPECT_EQ(::write(terminal, "out\n", 4), 4); });
        ::usleep(300'000);
    }
    char text[512] = "";
    ASSERT_GT(::read(master, text, sizeof text - 1), 0);
    const std::string erase = "\r\x1b[K";
    const std::string line = erase + "1/9 files, 0 B/5.0 MB, 0 B/s, 1 finding  .../////\u6f22\u6f22\u6f22\\x1b";
    EXPECT_EQ(text, line + erase + "out\r\n" + line + erase);
    ::close(terminal);
    ::close(master);
}

}  // namespace
