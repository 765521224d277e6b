// Boundary.h: between the C interface and what is behind it: exceptions and system errors become codes.
#ifndef ENGINE_CAPI_BOUNDARY_H
#define ENGINE_CAPI_BOUNDARY_H

#include <cxxabi.h>

#include <cerrno>
#include <new>

#include "Exception.h"
#include "vole.h"

namespace capi {

// What the step answers, or the code for what it throws. Nothing is thrown on, unless the thread is being cancelled.
template <class Step>
vole_error guarded(Step step) {
    try {
        return step();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (const std::bad_alloc&) {
        return VOLE_E_MEMORY;
    } catch (const ZOV_SPACE::OutOfMemoryException&) {
        return VOLE_E_MEMORY;
    } catch (...) {
        return VOLE_E_INTERNAL;
    }
}

// The code for a system call on a path that failed.
inline vole_error errorOfPath(int systemError) {
    switch (systemError) {
        case ENOENT:
        case ENOTDIR:  // Of a file above it.
        case ELOOP:
            return VOLE_E_NOT_FOUND;
        case EACCES:
        case EPERM:
            return VOLE_E_PERMISSION;
        case ENOMEM:
            return VOLE_E_MEMORY;
        default:
            return VOLE_E_IO;
    }
}

}  // namespace capi

#endif  // ENGINE_CAPI_BOUNDARY_H
