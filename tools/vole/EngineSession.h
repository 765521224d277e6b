// EngineSession: the engine by its older interface, loaded with one pattern directory: what a host of that interface
// gets to hear, with the limits of the directory's "voleeng.ini".
//   Owns:    the engine's signature sets, and the process's debugger settings: there is one session at a time.
//   Throws:  LoadError when scanning with this directory would mean nothing, or dumps cannot be written.
//   Threads: scans on any number at once, unless there are diagnostics or dumps.
#ifndef VOLE_TOOL_ENGINE_SESSION_H
#define VOLE_TOOL_ENGINE_SESSION_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "FileScanner.h"

struct EngineOptions {
    std::string patternDir = {};
    std::string dumpDir = {};  // where extracted archive members are dumped, made when missing; empty: nowhere
    bool diagnostics = false;  // the engine's diagnostic lines go to standard error
};

class EngineSession : public Engine {
public:
    explicit EngineSession(const EngineOptions& options);
    ~EngineSession() override;

    std::unique_ptr<FileScanner> newScanner() const override;

    // Dumps all members of an archive, also those that a scan leaves out: the one that matched, and what follows it.
    // Afterwards there are no signatures any more: nothing is to be scanned.
    void dumpMembers(const std::string& path);

    // Signature lines accepted while loading.
    std::optional<std::uint64_t> signatureCount() const override { return _signatureCount; }
    std::string id() const override { return {}; }
    std::vector<std::string> limits() const override { return _limits; }

private:
    std::optional<std::uint64_t> _signatureCount;
    std::vector<std::string> _limits;
};

#endif  // VOLE_TOOL_ENGINE_SESSION_H
