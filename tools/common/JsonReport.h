// JsonReport.h: the report as lines of JSON, without the line feed: one header, a line for each file, one summary.
// What the lines say is in docs/formats/scan-json.md and its schema; it is part of the program's interface.
//   Threads: no state; lines may be made in parallel.
#ifndef VOLE_TOOL_JSON_REPORT_H
#define VOLE_TOOL_JSON_REPORT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "FileReport.h"

// REQUIRES: `engine` and `setId` are UTF-8.
std::string jsonHeader(std::string_view engine, std::uint64_t signatures, std::string_view setId);

// "clean" and so on.
const char* wordFor(Outcome outcome);

std::string jsonLine(const FileReport& report);

std::string jsonSummary(const Tally& tally, double seconds, bool interrupted);

// One finding by itself, behind what `context` says of where and when: names, and texts of any bytes.
std::string jsonFinding(const Finding& finding, const std::vector<std::pair<std::string, std::string>>& context);

#endif  // VOLE_TOOL_JSON_REPORT_H
