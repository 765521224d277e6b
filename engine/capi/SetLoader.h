// SetLoader: fills one set of signatures from a pattern directory or from a compiled set, and tells the host of what it
// left out.
//   Borrows: the set and the options.
//   Throws:  std::bad_alloc, OutOfMemoryException. The set is useless then.
//   Threads: one, on which the host's callback is called; another one for the time of the load if the host allows it.
#ifndef ENGINE_CAPI_SETLOADER_H
#define ENGINE_CAPI_SETLOADER_H

#include <memory>
#include <string>
#include <vector>

#include "LoadObserver.h"
#include "SecondThread.h"
#include "SetDigest.h"
#include "Signatures.h"
#include "vole.h"

class SetLoader final : private LoadObserver {
public:
    SetLoader(vole_signatures& set, const vole_load_options& options) : _set(set), _options(options) {}

    // VOLE_OK; VOLE_E_SIGNATURES when a problem is fatal or the host wants no more; or what is wrong with the
    // path.
    vole_error load(const char* path);

private:
    struct Stopped {};  // Thrown once the host wants no more.

    void onProblem(const PatternLine& line, const RecordFault& fault) override;
    void onRecords(RecordKind kind, std::string_view texts, std::uint64_t) override { _digest.addRecords(kind, texts); }

    vole_error loadDirectory(const char* directory);
    vole_error loadCompiled();
    void loadAll(const std::string& directory, const std::vector<std::string>& names);
    std::unique_ptr<SecondThread> sharing(const std::string& directory, const std::vector<std::string>& names);
    void loadFile();
    void readFile();
    void loadFalseAlarms();
    void tell(const PatternLine& line, const std::string& reason, bool fatal);
    void tellOfFile(const std::string& reason, bool fatal);

    vole_signatures& _set;
    const vole_load_options& _options;
    SetDigest _digest;
    std::string _path;  // Of the file at hand.
    bool _failed = false;
};

#endif  // ENGINE_CAPI_SETLOADER_H
