// Benches.h: the groups of ratios. Each makes its own data and removes it.
#ifndef BENCH_BENCHES_H
#define BENCH_BENCHES_H

#include "Report.h"

struct Settings {
    bool quick = false;  // Less data and fewer rounds: a look, no verdict.
};

void benchLoading(const Settings& settings, Report& report);
void benchLookup(const Settings& settings, Report& report);
void benchCheckSums(const Settings& settings, Report& report);
void benchHashing(const Settings& settings, Report& report);
void benchSmallFiles(const Settings& settings, Report& report);
void benchArchives(const Settings& settings, Report& report);
void benchFaces(const Settings& settings, Report& report);
void benchScanRuns(const Settings& settings, Report& report);
void runMicrobenchmarks(const Settings& settings, Report& report);

#endif  // BENCH_BENCHES_H
