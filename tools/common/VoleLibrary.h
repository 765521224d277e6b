// VoleLibrary.h: the engine's C interface with C++ ownership, and what it answers as plain values.
//   Errors: LoadError, with a text for people.
#ifndef VOLE_TOOL_VOLE_LIBRARY_H
#define VOLE_TOOL_VOLE_LIBRARY_H

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "FileReport.h"
#include "vole.h"

// Why scanning would mean nothing: signatures that cannot be used, and the like.
struct LoadError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct SignaturesUnreferencer {
    void operator()(vole_signatures* signatures) const { vole_signatures_unref(signatures); }
};
using SignaturesHandle = std::unique_ptr<vole_signatures, SignaturesUnreferencer>;

struct ScannerFreer {
    void operator()(vole_scanner* scanner) const { vole_scanner_free(scanner); }
};
using ScannerHandle = std::unique_ptr<vole_scanner, ScannerFreer>;

// Told of each problem while a set is loaded: "FILE:LINE: what is wrong: the line". Must not throw.
using NoteProblem = std::function<void(const std::string& problem)>;

// VOLE_LOAD_THREADS where this process may use more than one processor, else nothing; for programs that can do nothing
// else until their signatures are there.
std::uint32_t spareProcessor();

// From a pattern directory or a compiled set. `flags` are VOLE_LOAD_... Sets without any signature are refused, too.
SignaturesHandle loadSignatures(const std::string& path, std::uint32_t flags, const NoteProblem& note);

inline Reason reasonFor(vole_reason_code code, std::string text) {
    return {vole_reason_name(code), std::move(text), {}};
}

MemberPath memberOf(const vole_path& path);
Finding plainFinding(const vole_finding& finding);

ScannerHandle makeScanner(vole_signatures* signatures, const vole_limits& limits, std::uint32_t flags);

// One whose contents are looked at in another process.
ScannerHandle makeIsolatedScanner(vole_signatures* signatures, const vole_limits& limits, std::uint32_t flags);

// What the scanner's latest scan, which returned `error`, came to, under this path. Names and texts beyond 1 MiB are
// left out, as is what the library does not keep; the counters tell of all.
FileReport reportOf(const vole_scanner* scanner, const std::string& path, vole_error error);

#endif  // VOLE_TOOL_VOLE_LIBRARY_H
