// What libFuzzer calls; main() is its own. The environment says which target.
#include <cstddef>

#include "Target.h"

extern "C" __attribute__((visibility("default"))) int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                                                             std::size_t size) {
    static const char* const name = std::getenv("VOLE_FUZZ_TARGET");
    static Target* const target = name ? findTarget(name) : nullptr;
    require(target);
    runTarget(target, {reinterpret_cast<const char*>(data), size});
    return 0;
}
