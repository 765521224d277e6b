// The exported functions of scanners. Each checks its arguments, and runs one scan of ReportingScan's.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <new>
#include <span>
#include <utility>

#include "Boundary.h"
#include "ContentSource.h"
#include "FilesAhead.h"
#include "ReportingScan.h"
#include "Result.h"
#include "Signatures.h"
#include "StructSize.h"
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

// One scan. `open` makes the content, for the scan that it is given.
template <class Open>
vole_error scanContentOf(vole_scanner& scanner, Open open) {
    vole_result& result = scanner.result;
    result.clear();
    ReportingScan scan(*scanner.signatures, scanner.terms, result);
    try {
        scan.checkpoint();
        ContentSource source = open(scan);
        if (source.error != VOLE_OK) {
            result.errorText = std::move(source.errorText);
            return source.error;
        }
        if (source.content) scan.run(std::move(source.content));
    } catch (const ZOV_SPACE::ScanStoppedException&) {
    }
    scan.conclude();
    return VOLE_OK;
}

// The same with all that is thrown become errors, for a scanner that is kept.
template <class Open>
vole_error scanInTurn(vole_scanner& scanner, Open open) {
    const vole_error error = capi::guarded([&] { return scanContentOf(scanner, open); });
    vole_result& result = scanner.result;
    if (error != VOLE_OK) {
        result.outcome = VOLE_OUTCOME_FAILED;
        if (result.errorText.empty()) {
            static_cast<void>(capi::guarded([&] {
                result.errorText = vole_error_text(error);
                return VOLE_OK;
            }));
        }
    }
    return error;
}

template <class Open>
vole_error scan(vole_scanner* scanner, vole_outcome* outcome, bool argumentsAreValid, Open open) {
    if (outcome) *outcome = VOLE_OUTCOME_FAILED;
    if (!scanner || !argumentsAreValid) return VOLE_E_ARGUMENT;
    const Turn turn(*scanner);
    if (!turn) return VOLE_E_BUSY;
    const vole_error error = scanInTurn(*scanner, open);
    if (outcome) *outcome = scanner->result.outcome;
    return error;
}

// Makes the content of a path, from what was read of it ahead, if anything was.
auto opening(const vole_scanner& scanner, const char* path, const FilesAhead::File* ahead = nullptr) {
    return [&scanner, path, ahead](ReportingScan& scan) {
        const std::uint64_t most = scanner.terms.limits.max_content;
        scan.lookBeside(VolumeFiles(path, most));
        if (!ahead) return contentOfPath(path, most, scan);
        if (ahead->digest) scan.know(*ahead->digest);
        return contentOfMemory(ahead->bytes.data(), ahead->bytes.size(), most, scan);
    };
}

// Scans that are cancelled end before they read anything. Without memory each file is read at its turn.
const FilesAhead::File* fileAhead(FilesAhead& files, std::size_t index, const vole_scanner& scanner) {
    const FilesAhead::File* file = nullptr;
    if (scanner.terms.cancelled.load()) return file;
    static_cast<void>(capi::guarded([&] {
        file = files.at(index);
        return VOLE_OK;
    }));
    return file;
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
    if (!scanner) return VOLE_E_ARGUMENT;
    *scanner = nullptr;
    if (!signatures) return VOLE_E_ARGUMENT;
    return capi::guarded([&] {
        const auto terms = capi::fromHost(limits, vole_limits VOLE_LIMITS_INIT);
        if (!terms) return VOLE_E_ARGUMENT;
        auto made = std::make_unique<vole_scanner>(signatures);
        made->terms.limits = *terms;
        *scanner = made.release();
        return VOLE_OK;
    });
}

void vole_scanner_free(vole_scanner* scanner) { const std::unique_ptr<vole_scanner> owner(scanner); }

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

void vole_scanner_cancel(vole_scanner* scanner) {
    if (scanner) scanner->terms.cancelled.store(true);
}

void vole_scanner_rearm(vole_scanner* scanner) {
    if (scanner) scanner->terms.cancelled.store(false);
}

const vole_result* vole_scanner_result(const vole_scanner* scanner) {
    static const vole_result kNone{VOLE_OUTCOME_FAILED, {}, {}, {}, {}, 0, 0};
    return scanner ? &scanner->result : &kNone;
}

vole_error vole_scan_path(vole_scanner* scanner, const char* path, vole_outcome* outcome) {
    return scan(scanner, outcome, path != nullptr, [&](ReportingScan& of) { return opening(*scanner, path)(of); });
}

vole_error vole_scan_paths(vole_scanner* scanner, const char* const* paths, size_t count, vole_scanned_fn on_scanned,
                           void* context) {
    if (!scanner || !on_scanned || (!paths && count != 0)) return VOLE_E_ARGUMENT;
    const std::span all(paths, count);
    if (std::find(all.begin(), all.end(), nullptr) != all.end()) return VOLE_E_ARGUMENT;
    const Turn turn(*scanner);
    if (!turn) return VOLE_E_BUSY;
    FilesAhead files(scanner->signatures->patterns.md5List(), all);
    for (std::size_t i = 0; i < count; ++i) {
        const auto* const ahead = fileAhead(files, i, *scanner);
        const vole_error error = scanInTurn(*scanner, opening(*scanner, paths[i], ahead));
        int answer = 0;
        const vole_error fault = capi::guarded([&] {
            answer = on_scanned(context, i, error, scanner->result.outcome);
            return VOLE_OK;
        });
        if (fault != VOLE_OK) return fault;
        if (answer != 0) break;
    }
    return VOLE_OK;
}

vole_error vole_scan_fd(vole_scanner* scanner, int fd, vole_outcome* outcome) {
    return scan(scanner, outcome, fd >= 0,
                [&](ReportingScan& of) { return contentOfDescriptor(fd, scanner->terms.limits.max_content, of); });
}

vole_error vole_scan_buffer(vole_scanner* scanner, const void* data, size_t size, vole_outcome* outcome) {
    return scan(scanner, outcome, data || size == 0,
                [&](ReportingScan& of) { return contentOfMemory(data, size, scanner->terms.limits.max_content, of); });
}

vole_error vole_scan_stream(vole_scanner* scanner, vole_read_fn read, void* context, vole_outcome* outcome) {
    return scan(scanner, outcome, read != nullptr, [&](ReportingScan& of) {
        return contentOfStream(read, context, scanner->terms.limits.max_content, of);
    });
}
