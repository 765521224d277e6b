// ScanReport: writes what is found out about each file as it comes, keeps count, and closes with a summary.
//   Borrows: the output and the progress line, which never get into each other.
//   Errors:  a report that cannot be written ends the scan; see Output.
//   Threads: one at a time.
#ifndef VOLE_TOOL_SCAN_REPORT_H
#define VOLE_TOOL_SCAN_REPORT_H

#include <string>
#include <string_view>
#include <vector>

#include "FileReport.h"
#include "FileScanner.h"
#include "Output.h"
#include "Progress.h"
#include "ScanOptions.h"

class ScanReport {
public:
    ScanReport(const ScanOptions& options, Output& output, Progress& progress);

    void begin(const Engine& engine);

    // False when there is no use in more.
    bool add(const FileReport& file);

    void end(const Engine& engine, double seconds);

    const Tally& tally() const { return _tally; }

    // The files with a finding, whether or not it counts; only kept for dumping.
    const std::vector<std::string>& matches() const { return _matches; }

private:
    void count(const FileReport& file);
    void write(std::string_view lines, Urgency urgency);

    const ScanOptions& _options;
    Output& _output;
    Progress& _progress;
    Tally _tally;
    std::vector<std::string> _matches;
};

#endif  // VOLE_TOOL_SCAN_REPORT_H
