// Faults.h: makes allocations and system calls of the code under test fail, the n-th of them in turn.
//
// Without a sanitizer, malloc, calloc and realloc of the whole process are replaced, so that operator new, zlib, expat
// and the C library's own allocations are met, too. With one, which brings its own: operator new, and those three where
// our objects call them. System calls are met where our objects make them. One thread at a
// time begins and ends plans, while no other runs; all that run in between are met.
#ifndef TESTS_ROBUSTNESS_FAULTS_H
#define TESTS_ROBUSTNESS_FAULTS_H

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

}  // namespace faults

#endif  // TESTS_ROBUSTNESS_FAULTS_H
