// ScanRun.h: one scan from the content to the result, with all that is thrown become errors.
#ifndef ENGINE_CAPI_SCANRUN_H
#define ENGINE_CAPI_SCANRUN_H

#include <chrono>
#include <utility>

#include "Boundary.h"
#include "ContentSource.h"
#include "ReportingScan.h"
#include "Result.h"
#include "Signatures.h"
#include "io/BufferBase.h"
#include "vole.h"

namespace capi {

// A result that says that the scan failed, with a text whatever happens.
inline vole_error failedIf(vole_error error, vole_result& result) {
    if (error == VOLE_OK) return error;
    result.outcome = VOLE_OUTCOME_FAILED;
    if (!result.errorText.empty()) return error;
    static_cast<void>(guarded([&] {
        result.errorText = vole_error_text(error);
        return VOLE_OK;
    }));
    return error;
}

// Scans what `open` makes for the scan that it is given. `spent` of the time limit has gone already.
template <class Open>
vole_error runScan(const vole_signatures& signatures, const ScanTerms& terms, vole_result& result, Open open,
                   std::chrono::microseconds spent = {}) {
    const auto run = [&] {
        result.clear();
        ReportingScan scan(signatures, terms, result, spent);
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
    };
    return failedIf(guarded(run), result);
}

}  // namespace capi

#endif  // ENGINE_CAPI_SCANRUN_H
