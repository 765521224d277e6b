// Faults.h: makes allocations and system calls of the code under test fail, the n-th of them in turn.
//
// Without a sanitizer, malloc, calloc and realloc of the whole process are replaced, so that operator new, zlib, expat
// and the C library's own allocations are met, too. With one, which brings its own: operator new, and those three where
// our objects call them. System calls are met where our objects make them. One thread at a time.
#ifndef TESTS_ROBUSTNESS_FAULTS_H
#define TESTS_ROBUSTNESS_FAULTS_H

#include <gtest/gtest.h>

#include <string>

namespace faults {

enum class Target {
    none,
    allocations,
    calls,        // Every system call returns an error.
    interrupted,  // Reads and writes only: EINTR.
    shortened,    // Reads and writes only: they do half of what is asked of them.
    moment,       // No call fails, but the action is carried out just before one.
};

struct Plan {
    Target target = Target::none;
    unsigned first = 0;    // The number of the call that fails, from 1.
    bool lasting = false;  // So do all that follow.
    int error = 0;         // The errno of calls.
    void (*action)() = nullptr;
};

// Runs the action under the plan. Afterwards `met` is how many calls the target had.
void begin(const Plan& plan);
unsigned end();

constexpr unsigned kEach = 1000;  // So many fail one by one; further on, every eighth of the number more.

constexpr unsigned after(unsigned n) { return n < kEach ? n + 1 : n + n / 8; }

// Calls attempt(plan) until a plan's first failure comes behind the last call; attempt() returns what end() said.
// Returns how many plans there were with a failure. Ends with the first plan that a test fails under, and names it.
template <class Attempt>
unsigned inTurn(const std::string& what, Plan plan, Attempt attempt) {
    unsigned failed = 0;
    for (plan.first = 1;; plan.first = after(plan.first), ++failed) {
        const unsigned met = attempt(plan);
        if (testing::Test::HasFailure()) ADD_FAILURE() << what << ", " << plan.first << ", lasting " << plan.lasting;
        if (testing::Test::HasFailure() || met < plan.first) return failed;
    }
}

}  // namespace faults

#endif  // TESTS_ROBUSTNESS_FAULTS_H
