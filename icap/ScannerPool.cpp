#include "ScannerPool.h"

#include <utility>

namespace icap {

ScannerHandle ScannerPool::take(const vole_limits& limits) {
    ScannerHandle scanner = idle();
    if (!scanner) scanner = isolated();
    if (!scanner) return makeScanner(_signatures, limits, 0);
    if (const vole_error error = vole_scanner_set_limits(scanner.get(), &limits)) {
        throw LoadError(std::string("cannot limit a scanner: ") + vole_error_text(error));
    }
    return scanner;
}

void ScannerPool::giveBack(ScannerHandle scanner) {
    const std::lock_guard lock(_mutex);
    if (_isolation == Isolation::off) return;
    vole_scanner_rearm(scanner.get());
    _idle.push_back(std::move(scanner));
}

// The one that was used last, whose memory is at hand; null: there is none.
ScannerHandle ScannerPool::idle() {
    const std::lock_guard lock(_mutex);
    if (_idle.empty()) return nullptr;
    ScannerHandle scanner = std::move(_idle.back());
    _idle.pop_back();
    return scanner;
}

// Null: none is wanted, or the system does not allow it, as shows with the first one. What fails later fails for want
// of something that an author of contents may have brought about, who is not to get out of the isolation by that.
ScannerHandle ScannerPool::isolated() {
    {
        const std::lock_guard lock(_mutex);
        if (_isolation == Isolation::off) return nullptr;
    }
    try {
        ScannerHandle scanner = makeIsolatedScanner(_signatures, _most, 0);
        const std::lock_guard lock(_mutex);
        _hasWorked = true;
        return scanner;
    } catch (const LoadError& error) {
        const std::lock_guard lock(_mutex);
        if (_hasWorked || _isolation == Isolation::required) throw;
        if (std::exchange(_isolation, Isolation::off) != Isolation::off) {
            _warn(std::string("scanning without isolation: ") + error.what());
        }
    }
    return nullptr;
}

}  // namespace icap
