#include "LibraryEngine.h"

#include <string_view>

#include "CachingScanner.h"
#include "LibraryScanner.h"
#include "Limits.h"
#include "Messages.h"

namespace {

// What is told while the set is loaded.
struct Problems {
    bool list = false;
    unsigned long long count = 0;
    std::string fatal = {};  // The first problem for which loading fails.
};

std::string textOf(const vole_load_problem& problem) {
    std::string text(problem.file);
    if (problem.line != 0) text += ':' + std::to_string(problem.line);
    text += std::string(": ") + problem.reason;
    if (problem.text_size != 0) text += ": " + std::string(problem.text, problem.text_size);
    return text;
}

// The library is C to its callers: nothing may be thrown through it.
int noteProblem(void* context, const vole_load_problem* problem) noexcept {
    Problems& problems = *static_cast<Problems*>(context);
    ++problems.count;
    if (problem->fatal != 0 && problems.fatal.empty()) problems.fatal = textOf(*problem);
    if (problems.list) complain(textOf(*problem));
    return 0;
}

vole_signatures* load(const std::string& directory, Problems& problems) {
    vole_load_options options = VOLE_LOAD_OPTIONS_INIT;
    options.on_problem = noteProblem;
    options.context = &problems;
    vole_signatures* signatures = nullptr;
    const vole_error error = vole_signatures_load(directory.c_str(), &options, &signatures);
    if (error == VOLE_OK) return signatures;
    const std::string reason = problems.fatal.empty() ? vole_error_text(error) : problems.fatal;
    throw LoadError("cannot load signatures from " + directory + ": " + reason);
}

void tellOf(const Problems& problems) {
    if (problems.list || problems.count == 0) return;
    const bool one = problems.count == 1;
    complain(std::to_string(problems.count) + (one ? " record" : " records") + " of the set " + (one ? "was" : "were") +
             " not usable; vole scan --debug lists them");
}

}  // namespace

LibraryEngine::LibraryEngine(const LibraryOptions& options)
    : _limits(options.limits), _flags(options.allMatches ? VOLE_SCAN_ALL_MATCHES : 0) {
    Problems problems{options.listProblems};
    _signatures.reset(load(options.patternDir, problems));
    tellOf(problems);
    if (vole_signatures_count(_signatures.get()) == 0) throw LoadError("no signatures in " + options.patternDir);
    if (!options.cache.empty())
        _cache = std::make_unique<ScanCache>(options.cache, id(), limitsKey(_limits) + vole_version());
}

std::unique_ptr<FileScanner> LibraryEngine::newScanner() const {
    auto scanner = std::make_unique<LibraryScanner>(_signatures.get(), _limits, _flags);
    if (!_cache) return scanner;
    return std::make_unique<CachingScanner>(std::move(scanner), *_cache);
}

std::optional<std::uint64_t> LibraryEngine::signatureCount() const { return vole_signatures_count(_signatures.get()); }

std::vector<std::string> LibraryEngine::limits() const { return limitLines(_limits); }
