// SignatureStore: the set that requests are scanned with, and how another one takes its place. A request that has begun
// keeps the set it began with; the last one to use a set lets it go.
//   Throws:  LoadError; the set in use stays in use.
//   Threads: any; one load at a time.
#ifndef VOLE_ICAP_SIGNATURE_STORE_H
#define VOLE_ICAP_SIGNATURE_STORE_H

#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "ScannerPool.h"
#include "Settings.h"
#include "VoleLibrary.h"

namespace icap {

struct SignatureSet {
    SignaturesHandle signatures;
    std::string tag;  // 26 hexadecimal digits, the same for equal sets, limits and rules, on every machine.
    std::unique_ptr<ScannerPool> scanners;
};

class SignatureStore {
public:
    explicit SignatureStore(ScannerPool::Warn warn) : _warn(std::move(warn)) {}

    // Null: none is loaded.
    std::shared_ptr<const SignatureSet> current() const;

    // Loads the folder of the settings. `note` hears of each record that cannot be used.
    std::shared_ptr<const SignatureSet> load(const Settings& settings, const NoteProblem& note);

    // Lets go of the set.
    void drop();

    // Whether the folder holds other files than those that were loaded, or found wanting, last; and has held them for
    // two calls in a row, so that files that are still being written are left alone.
    bool hasSettledChange(const Settings& settings);

private:
    const ScannerPool::Warn _warn;
    mutable std::mutex _mutex;  // guards _current
    std::shared_ptr<const SignatureSet> _current;
    std::mutex _loading;  // guards what follows, and is held while loading
    std::string _loadedFiles, _seenFiles;
};

}  // namespace icap

#endif  // VOLE_ICAP_SIGNATURE_STORE_H
