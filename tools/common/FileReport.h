// FileReport: what the scan of one path came to, in plain values that may cross threads and outlive the scanner; and
// the sums over all paths.
#ifndef VOLE_TOOL_FILE_REPORT_H
#define VOLE_TOOL_FILE_REPORT_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// Names of the archive member and of those around it, outermost first, raw bytes; empty: the file itself.
using MemberPath = std::vector<std::string>;

struct Finding {
    std::string name;  // of the signature
    std::string kind;  // "md5", ...
    std::string form;  // "raw", ...
    bool allowed = false;
    std::optional<std::uint64_t> offset;
    MemberPath member;
};

// Why something was not seen.
struct Reason {
    std::string code;  // "size-limit", ...
    std::string text;
    MemberPath member;
};

struct Counters {
    std::uint64_t bytesRead = 0;
    std::uint64_t bytesUnpacked = 0;
    std::uint64_t members = 0;
    std::uint64_t deepestLevel = 0;
    std::uint64_t timeMicroseconds = 0;
    std::uint64_t findings = 0;  // all of them, also those that are not listed
    std::uint64_t reasons = 0;
};

enum class Outcome { clean, found, incomplete, failed };

struct FileReport {
    std::string path;  // "-": standard input
    Outcome outcome = Outcome::clean;
    std::string error;  // failed: why, never empty; else empty
    std::vector<Finding> findings;
    std::vector<Reason> reasons;
    Counters counters;
    bool cached = false;           // known to be clean from an earlier run, and not read
    std::uint64_t cachedSize = 0;  // then, of the file, in bytes
};

// Numbers of files.
struct Tally {
    std::uint64_t scanned = 0;  // all but errors
    std::uint64_t infected = 0;
    std::uint64_t allowed = 0;  // only with findings that do not count
    std::uint64_t incomplete = 0;
    std::uint64_t errors = 0;
    std::uint64_t cached = 0;
};

#endif  // VOLE_TOOL_FILE_REPORT_H
