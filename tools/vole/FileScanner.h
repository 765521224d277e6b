// The two things that the command wants of the engine, whichever of its interfaces is behind them.
#ifndef VOLE_TOOL_FILE_SCANNER_H
#define VOLE_TOOL_FILE_SCANNER_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "FileReport.h"
#include "Target.h"

// Scans one target after another. Threads: one at a time.
class FileScanner {
public:
    FileScanner() = default;
    FileScanner(const FileScanner&) = delete;
    FileScanner& operator=(const FileScanner&) = delete;
    virtual ~FileScanner() = default;

    // REQUIRES: target.error is empty.
    virtual FileReport scan(const Target& target) = 0;

    // Told of each target in turn; false: the rest is not to be scanned. Throws nothing.
    using Told = std::function<bool(FileReport report)>;

    // The same for several.
    // REQUIRES: standard input is not among them, unless alone.
    virtual void scanAll(std::span<const Target> targets, const Told& told) {
        for (const Target& target : targets) {
            if (!told(scan(target))) return;
        }
    }
};

// Signatures and limits. Threads: any number at once. Outlives its scanners.
class Engine {
public:
    Engine() = default;
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    virtual ~Engine() = default;

    virtual std::unique_ptr<FileScanner> newScanner() const = 0;

    // Nothing when it cannot be known.
    virtual std::optional<std::uint64_t> signatureCount() const = 0;

    // Of the signatures, the same for equal ones; empty when it cannot be known.
    virtual std::string id() const = 0;

    // The limits that are in force, one "name = value" each.
    virtual std::vector<std::string> limits() const = 0;
};

#endif  // VOLE_TOOL_FILE_SCANNER_H
