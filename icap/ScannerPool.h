// ScannerPool: scanners of one set. Isolated ones are kept from scan to scan: each has a process of its own, which
// takes some milliseconds to start. There are never more of them than scans at the same time; the first is made with
// the first scan, so that processes that others are forked from have none.
//   Borrows: the set; every scanner has a reference of its own.
//   Throws:  LoadError, where there can be no scanner.
//   Threads: any.
#ifndef VOLE_ICAP_SCANNER_POOL_H
#define VOLE_ICAP_SCANNER_POOL_H

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "Settings.h"
#include "VoleLibrary.h"
#include "vole.h"

namespace icap {

class ScannerPool {
public:
    // `warn` hears, on any thread, that there is no isolation where it was only wished for.
    using Warn = std::function<void(const std::string& text)>;
    ScannerPool(vole_signatures* signatures, const Settings& settings, Warn warn)
        : _signatures(signatures), _most(settings.limits), _isolation(settings.isolation), _warn(std::move(warn)) {}

    // One that scans within these limits, which are those of the settings or less.
    ScannerHandle take(const vole_limits& limits);

    // For the next one who wants it. Not one whose last scan failed: how often that one's workers were lost is to make
    // nobody wait but whoever lost them.
    void giveBack(ScannerHandle scanner);

private:
    ScannerHandle idle();
    ScannerHandle isolated();

    vole_signatures* const _signatures;
    const vole_limits _most;
    std::mutex _mutex;  // guards what follows
    Isolation _isolation;
    bool _hasWorked = false;  // An isolated scanner was there.
    std::vector<ScannerHandle> _idle;
    const Warn _warn;
};

}  // namespace icap

#endif  // VOLE_ICAP_SCANNER_POOL_H
