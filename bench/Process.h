// Process.h: running other programs, and the files and folders that a run needs.
#ifndef BENCH_PROCESS_H
#define BENCH_PROCESS_H

#include <string>
#include <vector>

// Runs a program, found as a shell finds it, with its output thrown away. Returns the wall time in seconds from before
// its start to its end. Throws std::runtime_error unless it exits with 0.
double secondsToRun(const std::vector<std::string>& command);

// The same with the output left alone.
void runAndShow(const std::vector<std::string>& command);

// The folder of the build tree that holds the command line and the shared library, and the one with this program.
std::string buildDir();
std::string benchDir();

#endif  // BENCH_PROCESS_H
