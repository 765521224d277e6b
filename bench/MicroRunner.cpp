// The microbenchmarks are a program of their own, because they come with their own command line.
#include "Benches.h"
#include "Process.h"

void runMicrobenchmarks(const Settings& settings, Report& report) {
    report.section("Hot paths one by one (no targets)");
    runAndShow({benchDir() + "/microbenchmarks", "--benchmark_color=false",
                settings.quick ? "--benchmark_min_time=0.02" : "--benchmark_min_time=0.2"});
}
