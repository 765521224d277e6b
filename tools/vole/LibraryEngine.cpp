#include "LibraryEngine.h"

#include <string_view>

#include "CachingScanner.h"
#include "LibraryScanner.h"
#include "Limits.h"
#include "Messages.h"

namespace {

void tellOf(unsigned long long problems) {
    if (problems == 0) return;
    const bool one = problems == 1;
    complain(std::to_string(problems) + (one ? " record" : " records") + " of the set " + (one ? "was" : "were") +
             " not usable; vole scan --debug lists them");
}

SignaturesHandle loadTelling(const LibraryOptions& options) {
    unsigned long long unlisted = 0;
    SignaturesHandle signatures = loadSignatures(options.patternDir, spareProcessor(), [&](const std::string& problem) {
        if (options.listProblems)
            complain(problem);
        else
            ++unlisted;
    });
    tellOf(unlisted);
    return signatures;
}

}  // namespace

LibraryEngine::LibraryEngine(const LibraryOptions& options)
    : _signatures(loadTelling(options)),
      _limits(options.limits),
      _flags((options.allMatches ? VOLE_SCAN_ALL_MATCHES : 0U) | (options.shallow ? VOLE_SCAN_SHALLOW : 0U)),
      _isolation(options.isolation),
      _warn(options.warn) {
    if (!options.cache.empty())
        _cache = std::make_unique<ScanCache>(options.cache, id(), termsKey() + vole_version(), options.warn);
}

std::unique_ptr<FileScanner> LibraryEngine::newScanner() const {
    auto scanner = std::make_unique<LibraryScanner>(newHandle());
    if (!_cache) return scanner;
    return std::make_unique<CachingScanner>(std::move(scanner), *_cache);
}

ScannerHandle LibraryEngine::newHandle() const {
    if (_isolation == Isolation::no) return makeScanner(_signatures.get(), _limits, _flags);
    try {
        return makeIsolatedScanner(_signatures.get(), _limits, _flags);
    } catch (const LoadError& error) {
        if (_isolation == Isolation::required) throw;
        if (_isolation == Isolation::yes) _warn(std::string("scanning without isolation: ") + error.what());
    }
    _isolation = Isolation::no;
    return newHandle();
}

// What is clean on one of these terms need not be so on others.
std::string LibraryEngine::termsKey() const {
    return limitsKey(_limits) + (_flags & VOLE_SCAN_SHALLOW ? "shallow," : "");
}

std::optional<std::uint64_t> LibraryEngine::signatureCount() const { return vole_signatures_count(_signatures.get()); }

std::vector<std::string> LibraryEngine::limits() const { return limitLines(_limits); }
