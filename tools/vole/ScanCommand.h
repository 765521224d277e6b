// ScanCommand: "vole scan", from the parsed options to the exit code.
#ifndef VOLE_TOOL_SCAN_COMMAND_H
#define VOLE_TOOL_SCAN_COMMAND_H

#include <string>

#include "ExitCode.h"
#include "ScanOptions.h"

// The starter patterns that belong to this program: beside it, or where they were installed with it. Found from where
// the program is, so both may be moved together.
std::string defaultPatternDir();

// Scans all that is asked for and reports on standard output; what keeps the scan from starting or reporting goes to
// standard error. Once scans run, a signal that asks the process to end (Interruption.h) ends the report early but in
// order; the caller has to pass it on.
ExitCode runScan(const ScanOptions& options);

#endif  // VOLE_TOOL_SCAN_COMMAND_H
