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
    const std::string erase = "\r\x1b[K";
    const std::string line = erase + "1/9 files, 0 B/5.0 MB, 0 B/s, 1 finding  .../////\u6f22\u6f22\u6f22\\x1b";
    std::string shown;
    const auto waitFor = [&](const std::string& text) {
        for (char c; !shown.ends_with(text) && ::read(master, &c, 1) == 1;) shown += c;
    };
    const auto print = [&](std::string_view text) { EXPECT_GT(::write(terminal, text.data(), text.size()), 0); };
    {
        Progress progress(true, terminal);
        progress.start();
        progress.known(9, 5'000'000);
        progress.done(0, 1);
        progress.started(std::string(99, '/') + "\u6f22\u6f22\u6f22\x1b");
        waitFor(line);
        progress.withoutLine([&] { print("out\n"); });
        waitFor("out\r\n");
        waitFor(line);
    }
    print("end\n");
    waitFor("end\r\n");
    // How often it was redrawn is a matter of time.
    for (std::size_t at; (at = shown.find(line + line)) != std::string::npos;) shown.erase(at, line.size());
    EXPECT_EQ(shown, line + erase + "out\r\n" + line + erase + "end\r\n");
    ::close(terminal);
    ::close(master);
}

}  // namespace
