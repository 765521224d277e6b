// LineReport: what a scan came to as lines for people, and for scripts that cut them: "PATH: NAME FOUND" and so on.
// Nothing that others chose can forge a line or steer a terminal: see Escape.h.
//   Threads: no state.
#ifndef VOLE_TOOL_LINE_REPORT_H
#define VOLE_TOOL_LINE_REPORT_H

#include <optional>
#include <string>

#include "FileReport.h"

// The lines on one file, with a line feed between them.
std::string reportLines(const FileReport& report);

// Every reason why something in the file was not seen, in one line each.
std::string reasonLines(const FileReport& report);

// Without `signatures` and `cached`, the lines about them are left out.
std::string summaryLines(const Tally& tally, double seconds, std::optional<std::uint64_t> signatures, bool cached);

#endif  // VOLE_TOOL_LINE_REPORT_H
