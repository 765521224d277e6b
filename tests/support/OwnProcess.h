// OwnProcess.h: runs a test's body in a process of its own, for what changes the process for good.
#ifndef TESTS_SUPPORT_OWNPROCESS_H
#define TESTS_SUPPORT_OWNPROCESS_H

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

// The body's failed expectations are printed there and fail the test here. No other thread may run. `used` is what the
// process took.
template <class Body>
void inOwnProcess(Body body, rusage* used = nullptr) {
    std::fflush(nullptr);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        body();
        std::fflush(nullptr);
        ::_exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(::wait4(child, &status, 0, used), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status << " of the child";
}

#endif  // TESTS_SUPPORT_OWNPROCESS_H
