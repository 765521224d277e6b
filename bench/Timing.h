// Timing.h: how every ratio is measured. Reference and subject run in turn, several rounds, and the shortest time of
// each counts: on a busy machine disturbance only ever adds time, and taking turns keeps a slow phase from hitting
// one side alone.
#ifndef BENCH_TIMING_H
#define BENCH_TIMING_H

#include <time.h>

#include <algorithm>
#include <chrono>
#include <limits>

// Wall time, in seconds.
template <class Work>
double secondsOf(Work&& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Processor time of this process, in seconds: what wall time would be if no other process ran. For work that waits for
// nothing and takes so long that it is always interrupted on a busy machine.
template <class Work>
double cpuSecondsOf(Work&& work) {
    const auto now = [] {
        timespec time;
        ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
    };
    const double start = now();
    work();
    return now() - start;
}

struct Times {
    double reference = std::numeric_limits<double>::infinity();
    double subject = std::numeric_limits<double>::infinity();

    void add(double referenceSeconds, double subjectSeconds) {
        reference = std::min(reference, referenceSeconds);
        subject = std::min(subject, subjectSeconds);
    }
};

// The best of `rounds` turns. Each callable does its work once and returns the seconds that count.
template <class Reference, class Subject>
Times bestOf(int rounds, Reference&& reference, Subject&& subject) {
    Times best;
    for (int round = 0; round < rounds; ++round) {
        const double referenceSeconds = reference();
        best.add(referenceSeconds, subject());
    }
    return best;
}

// Seconds for one call of `work`, as the best of `batches` batches of two milliseconds: many and shorter than a time
// slice, so that some are not interrupted.
template <class Work>
double secondsPerCall(int batches, Work&& work) {
    constexpr double kBatchSeconds = 0.002;
    long calls = 1;
    double best = std::numeric_limits<double>::infinity();
    for (int batch = 0; batch < batches;) {
        const double seconds = secondsOf([&] {
            for (long call = 0; call < calls; ++call) work();
        });
        if (seconds < kBatchSeconds && calls < (1L << 30)) {
            calls *= 2;
            continue;
        }
        best = std::min(best, seconds / static_cast<double>(calls));
        ++batch;
    }
    return best;
}

#endif  // BENCH_TIMING_H
