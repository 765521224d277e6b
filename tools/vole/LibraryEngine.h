// LibraryEngine: the engine by its C interface, loaded with one pattern directory.
//   Owns:    a reference to the set.
//   Throws:  LoadError when the directory cannot be used, or has no signatures.
//   Threads: any number at once, but newScanner(): see LibraryScanner.
#ifndef VOLE_TOOL_LIBRARY_ENGINE_H
#define VOLE_TOOL_LIBRARY_ENGINE_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "FileScanner.h"
#include "ScanCache.h"
#include "VoleLibrary.h"
#include "vole.h"

// Whether contents are looked at in processes of their own: never; if possible; the same, and it is told when not; or
// not at all otherwise.
enum class Isolation { no, quietly, yes, required };

struct LibraryOptions {
    std::string patternDir = {};
    vole_limits limits = VOLE_LIMITS_INIT;
    bool allMatches = false;
    bool shallow = false;
    bool listProblems = false;  // Each problem of the set on standard error, instead of their number.
    Isolation isolation = Isolation::no;
    std::string cache = {};  // The file that remembers what was clean; empty: none.
    ScanCache::Warn warn = complain;
};

class LibraryEngine : public Engine {
public:
    explicit LibraryEngine(const LibraryOptions& options);

    std::unique_ptr<FileScanner> newScanner() const override;
    std::optional<std::uint64_t> signatureCount() const override;
    std::vector<std::string> limits() const override;
    std::string id() const override { return vole_signatures_id(_signatures.get()); }

private:
    std::string termsKey() const;
    ScannerHandle newHandle() const;

    SignaturesHandle _signatures;
    vole_limits _limits;
    std::uint32_t _flags;
    mutable Isolation _isolation;
    ScanCache::Warn _warn;
    std::unique_ptr<ScanCache> _cache;
};

#endif  // VOLE_TOOL_LIBRARY_ENGINE_H
