// RunProgram: runs a program to its end and keeps what it printed.
#ifndef TESTS_CLI_RUN_PROGRAM_H
#define TESTS_CLI_RUN_PROGRAM_H

#include <string>
#include <vector>

struct ProgramResult {
    int status = -1;  // exit status; -1 when the program did not exit by itself
    std::string out;
    std::string err;
};

// Runs `arguments[0]` in the folder `workingDir`. With `outPath`, standard output goes to that file instead of `out`.
ProgramResult runProgram(const std::vector<std::string>& arguments, const std::string& workingDir,
                         const char* outPath = nullptr);

#endif  // TESTS_CLI_RUN_PROGRAM_H
