// Process.h: running other programs, and the files and folders that a run needs.
#ifndef BENCH_PROCESS_H
#define BENCH_PROCESS_H

#include <string>
#include <vector>

struct RunTime {
    double wall;  // Seconds from before the program's start to its end.
    double cpu;   // Of all processors, in the program and in the kernel for it.
};

// Runs a program, found as a shell finds it, with its output thrown away. Throws std::runtime_error unless it exits
// with 0.
RunTime timeToRun(const std::vector<std::string>& command);
double secondsToRun(const std::vector<std::string>& command);  // Wall time.

// The most memory that the same takes at once. A program of its own measures that, writing to a file, because what the
// kernel counts for a new process begins with the size of this one.
long peakKilobytes(const std::vector<std::string>& command, const std::string& file);

// The same with the output left alone.
void runAndShow(const std::vector<std::string>& command);

// The folder of the build tree that holds the command line and the shared library, and the one with this program.
std::string buildDir();
std::string benchDir();

#endif  // BENCH_PROCESS_H
