// CachingScanner: passes over files that an earlier run found clean, and remembers those that this one does.
//   Borrows: the cache, which scanners share.
//   Threads: as LibraryScanner.
#ifndef VOLE_TOOL_CACHING_SCANNER_H
#define VOLE_TOOL_CACHING_SCANNER_H

#include <memory>
#include <string>
#include <utility>

#include "LibraryScanner.h"
#include "ScanCache.h"

class CachingScanner : public FileScanner {
public:
    CachingScanner(std::unique_ptr<LibraryScanner> scanner, ScanCache& cache)
        : _scanner(std::move(scanner)), _cache(cache) {}

    FileReport scan(const Target& target) override;

private:
    FileReport scanAndRemember(const Target& target);

    std::unique_ptr<LibraryScanner> _scanner;
    ScanCache& _cache;
};

#endif  // VOLE_TOOL_CACHING_SCANNER_H
