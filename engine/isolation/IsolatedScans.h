// IsolatedScans: the scans of one scanner whose contents are looked at by a worker: a process that has the signatures,
// gets descriptors and bytes, and may do nothing else. This side opens files, keeps what the host gave, starts workers
// and believes nothing of them. A worker that is lost costs the content that it had before it; the next one gets what
// comes next.
//   Owns:    the worker.
//   Borrows: the scanner's set, terms and result, which each scan fills.
//   Threads: one at a time.
#ifndef ENGINE_ISOLATION_ISOLATEDSCANS_H
#define ENGINE_ISOLATION_ISOLATEDSCANS_H

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "ContentSource.h"
#include "ReportingScan.h"
#include "Signatures.h"
#include "SmallFiles.h"
#include "WorkerLink.h"
#include "vole.h"

namespace isolation {

class IsolatedScans {
public:
    // Changes where the terms say that a scan is cancelled.
    IsolatedScans(const vole_signatures& signatures, ScanTerms& terms, vole_result& result, WorkerTerms worker);

    // Starts a worker. VOLE_E_ISOLATION where there can be none; the reason is the result's error text.
    vole_error start();

    // From any thread, and from a signal handler.
    void cancel(bool wanted) { _link.inbox().cancelled.store(wanted); }

    // Each as the scan of vole.h that it is for. Throws what vole_scan_path() and the like turn into errors, after
    // which the worker is gone.
    vole_error path(const char* path);
    vole_error descriptor(int fd);
    vole_error memory(const void* data, std::size_t size);
    vole_error stream(vole_read_fn read, void* context);

    // `told` answers whether more is wanted.
    using Told = std::function<bool(std::size_t index, vole_error error)>;
    vole_error paths(std::span<const char* const> paths, const Told& told);

private:
    class VolumesOf;
    // What the worker is to look at, or why there is nothing.
    struct Handed {
        ZOV_SPACE::OwnFd file;
        std::size_t inboxBytes = 0;  // Without a file.
        vole_error error = VOLE_OK;
        std::string errorText = {};
        bool isRefused = false;  // A limit keeps it from being looked at, which the scan has been told.
    };
    template <class Hand>
    vole_error scan(VolumesOf* volumes, Hand hand);
    Handed spool(vole_read_fn read, void* context, ReportingScan& scan);
    vole_error ask(const Handed& handed, VolumesOf* volumes, std::uint64_t spentUs);
    static std::size_t readTogether(SmallFiles& files, std::span<const char* const> paths);
    std::size_t askTogether(const SmallFiles& files, std::span<const char* const> paths, std::size_t first,
                            const Told& told, bool& wanted);
    template <class Step>
    bool tryTo(Step step);
    vole_error runWorker();
    bool haveWorker(bool andReady);
    vole_error notStarted();
    void pause() const;
    void converse(const Order& scanned, int fd, VolumesOf* volumes);
    bool tellHost();
    vole_error takeResult(bool isLast);
    vole_error lost();
    Order scanOrder() const;
    bool isCancelled() const { return _terms.cancelledAt->load(); }

    const vole_signatures& _signatures;
    ScanTerms& _terms;
    vole_result& _result;
    WorkerLink _link;
    unsigned _lostInARow = 0;
};

}  // namespace isolation

#endif  // ENGINE_ISOLATION_ISOLATEDSCANS_H
