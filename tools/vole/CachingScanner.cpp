#include "CachingScanner.h"

#include <sys/stat.h>

#include <ctime>

#include "Descriptor.h"

FileReport CachingScanner::scan(const Target& target) {
    if (target.standardInput) return _scanner->scan(target);
    struct stat status;
    if (::stat(target.path.c_str(), &status) != 0) return _scanner->scan(target);
    const auto held = _cache.holdIfOwn(status);
    if (held) return _scanner->scan(target);
    if (!_cache.isKnownClean(status)) return scanAndRemember(target);
    FileReport report;
    report.path = target.path;
    report.cached = true;
    report.cachedSize = static_cast<std::uint64_t>(status.st_size);
    return report;
}

FileReport CachingScanner::scanAndRemember(const Target& target) {
    timespec start{};
    ::clock_gettime(CLOCK_REALTIME, &start);
    const Descriptor file(target.path.c_str());
    struct stat before, after;
    // The library has the words for what cannot be opened, or is no file.
    if (!file.status(before) || !S_ISREG(before.st_mode)) return _scanner->scan(target);
    FileReport report = _scanner->scanOpen(target.path, file.number());
    // Allowed findings would be missing from the next report.
    const bool clean = report.outcome == Outcome::clean && report.findings.empty();
    // Where a file system does not know sizes, contents change without a trace.
    const bool sized = report.counters.bytesRead == static_cast<std::uint64_t>(before.st_size);
    if (clean && sized && file.status(after)) _cache.rememberClean(before, after, start);
    return report;
}
