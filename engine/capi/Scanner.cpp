// The exported functions of scanners. Each checks its arguments, and runs one scan here or has a worker run it.
#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "Boundary.h"
#include "ContentSource.h"
#include "FilesAhead.h"
#include "IsolatedScans.h"
#include "Raise.h"
#include "ReportingScan.h"
#include "Result.h"
#include "ScanRun.h"
#include "SetImage.h"
#include "Signatures.h"
#include "StructSize.h"
#include "VolumeFiles.h"
#include "vole.h"

namespace {

constexpr std::uint32_t kKnownFlags = VOLE_SCAN_ALL_MATCHES | VOLE_SCAN_SHALLOW | VOLE_SCAN_CONTENTS;

struct Unref {
    void operator()(vole_signatures* signatures) const { vole_signatures_unref(signatures); }
};

}  // namespace

struct vole_scanner {
    explicit vole_scanner(vole_signatures* set) : signatures(vole_signatures_ref(set)) {}

    std::unique_ptr<vole_signatures, Unref> signatures;
    ScanTerms terms;
    vole_result result;
    std::atomic<bool> busy = false;
    std::unique_ptr<isolation::IsolatedScans> isolated;  // Null for one that scans in this process.
};

namespace {

// Keeps a scanner for one scan, or finds it in use.
class Turn {
public:
    explicit Turn(vole_scanner& scanner) : _scanner(scanner), _taken(!scanner.busy.exchange(true)) {}
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn() {
        if (_taken) _scanner.busy.store(false);
    }

    explicit operator bool() const { return _taken; }

private:
    vole_scanner& _scanner;
    bool _taken;
};

// One scan: of what `open` makes in this process, or as `isolated` does it.
template <class Open, class Isolated>
vole_error scan(vole_scanner* scanner, vole_outcome* outcome, bool argumentsAreValid, Open open, Isolated isolated) {
    if (outcome) *outcome = VOLE_OUTCOME_FAILED;
    if (!scanner || !argumentsAreValid) return VOLE_E_ARGUMENT;
    const Turn turn(*scanner);
    if (!turn) return VOLE_E_BUSY;
    vole_error error;
    if (scanner->isolated) {
        error = capi::failedIf(capi::guarded([&] { return isolated(*scanner->isolated); }), scanner->result);
    } else {
        error = capi::runScan(*scanner->signatures, scanner->terms, scanner->result, open);
    }
    if (outcome) *outcome = scanner->result.outcome;
    return error;
}

// Makes the content of a path, from what was read of it ahead, if anything was.
auto opening(const vole_scanner& scanner, const char* path, const ContentAhead* ahead = nullptr) {
    return [&scanner, path, ahead](ReportingScan& scan) {
        const std::uint64_t most = scanner.terms.limits.max_content;
        scan.lookBeside([volumes = VolumeFiles(path, most)](int number) mutable {
            return VolumeFiles::content(volumes.open(number));
        });
        if (!ahead) return contentOfPath(path, most, scan);
        if (ahead->digest) scan.know(*ahead->digest);
        return contentOfMemory(ahead->bytes.data(), ahead->bytes.size(), most, scan);
    };
}

// Scans that are cancelled end before they read anything. Without memory each file is read at its turn.
const ContentAhead* fileAhead(FilesAhead& files, std::size_t index, const vole_scanner& scanner) {
    const ContentAhead* file = nullptr;
    if (scanner.terms.cancelledAt->load()) return file;
    static_cast<void>(capi::guarded([&] {
        file = files.at(index);
        return VOLE_OK;
    }));
    return file;
}

}  // namespace

namespace {

// `complete` makes it what it is to be.
template <class Complete>
vole_error newScanner(vole_signatures* signatures, const vole_limits* limits, vole_scanner** scanner,
                      Complete complete) {
    if (!scanner) return VOLE_E_ARGUMENT;
    *scanner = nullptr;
    if (!signatures) return VOLE_E_ARGUMENT;
    return capi::guarded([&] {
        const auto terms = capi::fromHost(limits, vole_limits VOLE_LIMITS_INIT);
        if (!terms) return VOLE_E_ARGUMENT;
        auto made = std::make_unique<vole_scanner>(signatures);
        made->terms.limits = *terms;
        const vole_error error = complete(*made);
        if (error == VOLE_OK) *scanner = made.release();
        return error;
    });
}

// The worker program that belongs to this library.
std::string ownWorker() {
    Dl_info library{};
    if (::dladdr(reinterpret_cast<const void*>(&vole_isolated_scanner_new), &library) == 0) return {};
    const std::string_view path = library.dli_fname;
    return std::string(path.substr(0, path.rfind('/') + 1)) + "libvole1/vole-worker";
}

void tellWhy(const vole_isolation& isolation, std::string_view text) {
    if (!isolation.why || isolation.why_size == 0) return;
    isolation.why[text.copy(isolation.why, isolation.why_size - 1)] = '\0';
}

vole_error isolate(vole_scanner& scanner, const vole_isolation* isolation) {
    const auto wanted = capi::fromHost<vole_isolation>(isolation, VOLE_ISOLATION_INIT);
    if (!wanted) return VOLE_E_ARGUMENT;
    isolation::WorkerTerms worker;
    worker.program = wanted->worker ? std::string(wanted->worker) : ownWorker();
    worker.maxMemory = wanted->max_memory;
    worker.grace = std::chrono::milliseconds(std::min<std::uint64_t>(wanted->grace_ms, 3'600'000));
    worker.set = isolation::imageOf(*scanner.signatures);
    if (!worker.set) {
        tellWhy(*wanted, "the signatures cannot be shared: " + ZOV_SPACE::systemErrorText());
        return VOLE_E_ISOLATION;
    }
    scanner.isolated = std::make_unique<isolation::IsolatedScans>(*scanner.signatures, scanner.terms, scanner.result,
                                                                  std::move(worker));
    const vole_error error = scanner.isolated->start();
    if (error != VOLE_OK) tellWhy(*wanted, scanner.result.errorText);
    return error;
}

void setCancelled(vole_scanner* scanner, bool wanted) {
    if (!scanner) return;
    if (scanner->isolated) {
        scanner->isolated->cancel(wanted);
    } else {
        scanner->terms.cancelled.store(wanted);
    }
}

}  // namespace

void vole_limits_init(vole_limits* limits, size_t size) {
    if (!limits || size < sizeof limits->struct_size) return;
    vole_limits defaults = VOLE_LIMITS_INIT;
    defaults.struct_size = size;
    std::memset(limits, 0, size);
    std::memcpy(limits, &defaults, std::min(size, sizeof defaults));
}

vole_error vole_scanner_new(vole_signatures* signatures, const vole_limits* limits, vole_scanner** scanner) {
    return newScanner(signatures, limits, scanner, [](vole_scanner&) { return VOLE_OK; });
}

vole_error vole_isolated_scanner_new(vole_signatures* signatures, const vole_limits* limits,
                                     const vole_isolation* isolation, vole_scanner** scanner) {
    return newScanner(signatures, limits, scanner, [&](vole_scanner& made) { return isolate(made, isolation); });
}

void vole_scanner_free(vole_scanner* scanner) { const std::unique_ptr<vole_scanner> owner(scanner); }

vole_error vole_scanner_set_limits(vole_scanner* scanner, const vole_limits* limits) {
    const auto terms = capi::fromHost(limits, vole_limits VOLE_LIMITS_INIT);
    if (!scanner || !terms) return VOLE_E_ARGUMENT;
    const Turn turn(*scanner);
    if (!turn) return VOLE_E_BUSY;
    scanner->terms.limits = *terms;
    return VOLE_OK;
}

vole_error vole_scanner_set_flags(vole_scanner* scanner, uint32_t flags) {
    if (!scanner || (flags & ~kKnownFlags) != 0) return VOLE_E_ARGUMENT;
    const Turn turn(*scanner);
    if (!turn) return VOLE_E_BUSY;
    scanner->terms.flags = flags;
    return VOLE_OK;
}

vole_error vole_scanner_set_events(vole_scanner* scanner, vole_event_fn callback, void* context) {
    if (!scanner) return VOLE_E_ARGUMENT;
    const Turn turn(*scanner);
    if (!turn) return VOLE_E_BUSY;
    scanner->terms.onEvent = callback;
    scanner->terms.context = context;
    return VOLE_OK;
}

void vole_scanner_cancel(vole_scanner* scanner) { setCancelled(scanner, true); }

void vole_scanner_rearm(vole_scanner* scanner) { setCancelled(scanner, false); }

const vole_result* vole_scanner_result(const vole_scanner* scanner) {
    static const vole_result kNone{VOLE_OUTCOME_FAILED, {}, {}, {}, {}, 0, 0};
    return scanner ? &scanner->result : &kNone;
}

vole_error vole_scan_path(vole_scanner* scanner, const char* path, vole_outcome* outcome) {
    return scan(
        scanner, outcome, path != nullptr, [&](ReportingScan& of) { return opening(*scanner, path)(of); },
        [&](isolation::IsolatedScans& scans) { return scans.path(path); });
}

vole_error vole_scan_paths(vole_scanner* scanner, const char* const* paths, size_t count, vole_scanned_fn on_scanned,
                           void* context) {
    if (!scanner || !on_scanned || (!paths && count != 0)) return VOLE_E_ARGUMENT;
    const std::span all(paths, count);
    if (std::find(all.begin(), all.end(), nullptr) != all.end()) return VOLE_E_ARGUMENT;
    const Turn turn(*scanner);
    if (!turn) return VOLE_E_BUSY;
    vole_result& result = scanner->result;
    const auto tell = [&](std::size_t index, vole_error error) {
        capi::failedIf(error, result);
        return on_scanned(context, index, error, result.outcome) == 0;
    };
    return capi::guarded([&] {
        if (scanner->isolated) return scanner->isolated->paths(all, tell);
        FilesAhead files(scanner->signatures->patterns.md5List(), all);
        for (std::size_t i = 0; i < count; ++i) {
            const auto* const ahead = fileAhead(files, i, *scanner);
            const auto open = opening(*scanner, paths[i], ahead);
            if (!tell(i, capi::runScan(*scanner->signatures, scanner->terms, result, open))) break;
        }
        return VOLE_OK;
    });
}

vole_error vole_scan_fd(vole_scanner* scanner, int fd, vole_outcome* outcome) {
    return scan(
        scanner, outcome, fd >= 0,
        [&](ReportingScan& of) { return contentOfDescriptor(fd, scanner->terms.limits.max_content, of); },
        [&](isolation::IsolatedScans& scans) { return scans.descriptor(fd); });
}

vole_error vole_scan_buffer(vole_scanner* scanner, const void* data, size_t size, vole_outcome* outcome) {
    return scan(
        scanner, outcome, data || size == 0,
        [&](ReportingScan& of) { return contentOfMemory(data, size, scanner->terms.limits.max_content, of); },
        [&](isolation::IsolatedScans& scans) { return scans.memory(data, size); });
}

vole_error vole_scan_stream(vole_scanner* scanner, vole_read_fn read, void* context, vole_outcome* outcome) {
    return scan(
        scanner, outcome, read != nullptr,
        [&](ReportingScan& of) { return contentOfStream(read, context, scanner->terms.limits.max_content, of); },
        [&](isolation::IsolatedScans& scans) { return scans.stream(read, context); });
}
