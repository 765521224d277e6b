// EngineSession: the engine, loaded with one pattern directory for as long as this object lives.
//   Owns:    the engine's signature sets, and the process's debugger settings: there is one session at a time.
//   Throws:  LoadError when scanning with this directory would mean nothing, or dumps cannot be written.
//   Threads: all on one thread at a time.
#ifndef VOLE_TOOL_ENGINE_SESSION_H
#define VOLE_TOOL_ENGINE_SESSION_H

#include <stdexcept>
#include <string>
#include <vector>

struct LoadError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct EngineOptions {
    std::string patternDir;
    std::string dumpDir;       // where extracted archive members are dumped, made when missing; empty: nowhere
    bool diagnostics = false;  // the engine's diagnostic lines go to standard error
};

enum class Verdict {
    clean,
    found,
    allowed,  // found, and its name is on the list of false alarms
    failed
};

struct ScanResult {
    Verdict verdict;
    std::string text;   // found, allowed: the signature's name; failed: the reason, never empty
    std::string entry;  // of a match in an archive member: its path, with the archives that it lies in as folders
};

class EngineSession {
public:
    explicit EngineSession(const EngineOptions& options);
    ~EngineSession();
    EngineSession(const EngineSession&) = delete;
    EngineSession& operator=(const EngineSession&) = delete;

    ScanResult scan(const std::string& path) const;

    // Dumps all members of an archive, also those that scan() leaves out: the one that matched, and what follows it.
    // Afterwards there are no signatures any more: scan() is not to be called.
    void dumpMembers(const std::string& path);

    // Signature lines accepted while loading; -1 when the engine did not tell.
    int signatureCount() const { return _signatureCount; }

    // The limits on unpacking that are in force, one "name = value" each.
    const std::vector<std::string>& limits() const { return _limits; }

private:
    void listenAsAsked() const;
    std::string findEntry(const std::string& path) const;

    bool _diagnostics;
    int _signatureCount = -1;
    std::vector<std::string> _limits;
};

#endif  // VOLE_TOOL_ENGINE_SESSION_H
