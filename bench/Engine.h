// Engine.h: the engine's exported functions as the benchmarks use them; each throws when the engine refuses.
#ifndef BENCH_ENGINE_H
#define BENCH_ENGINE_H

#include <stdexcept>
#include <string>

#include "voleeng.h"

inline void loadEngine(const std::string& directory) {
    std::string message;
    freeResource();
    if (init(directory.c_str(), message) != 0) throw std::runtime_error("init: " + message);
}

// Nothing in a benchmark's data matches: a find would end a scan early.
inline void scanCleanFile(const std::string& path) {
    std::string virusName;
    std::string message;
    if (scanFile(path.c_str(), virusName, message) != VOLE_CLEAN) throw std::runtime_error("scan of " + path);
}

#endif  // BENCH_ENGINE_H
