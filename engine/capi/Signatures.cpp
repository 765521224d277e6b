// The functions of vole.h that are about sets of signatures.
#include "Signatures.h"

#include <memory>

#include "Boundary.h"
#include "CompiledSet.h"
#include "SetLoader.h"
#include "StructSize.h"

vole_error vole_signatures_load(const char* path, const vole_load_options* options, vole_signatures** signatures) {
    if (!signatures) return VOLE_E_ARGUMENT;
    *signatures = nullptr;
    const auto known = capi::fromHost<vole_load_options>(options, VOLE_LOAD_OPTIONS_INIT);
    if (!path || !known || (known->flags & ~(VOLE_LOAD_STRICT | VOLE_LOAD_THREADS))) return VOLE_E_ARGUMENT;
    return capi::guarded([&] {
        auto set = std::make_unique<vole_signatures>();
        const vole_error error = SetLoader(*set, *known).load(path);
        if (error == VOLE_OK) *signatures = set.release();
        return error;
    });
}

vole_error vole_signatures_save(const vole_signatures* signatures, const char* path) {
    if (!signatures || !path) return VOLE_E_ARGUMENT;
    return capi::guarded([&] { return compiled::saveSet(*signatures, path); });
}

vole_signatures* vole_signatures_ref(vole_signatures* signatures) {
    if (signatures) signatures->references.fetch_add(1, std::memory_order_relaxed);
    return signatures;
}

void vole_signatures_unref(vole_signatures* signatures) {
    if (signatures && signatures->references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete signatures;
}

uint64_t vole_signatures_count(const vole_signatures* signatures) {
    return signatures ? static_cast<uint64_t>(signatures->patterns.loadedCount()) : 0;
}

uint64_t vole_signatures_memory(const vole_signatures* signatures) { return signatures ? signatures->memoryBytes : 0; }

const char* vole_signatures_id(const vole_signatures* signatures) { return signatures ? signatures->id.c_str() : ""; }

int vole_signatures_is_false_alarm(const vole_signatures* signatures, const char* name) {
    return signatures && name && signatures->falseAlarms.contains(name);
}
