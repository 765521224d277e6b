// What libFuzzer calls; main() is its own.
#include <cstddef>
#include <cstdint>

#include "Target.h"

extern "C" __attribute__((visibility("default"))) int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                                                             std::size_t size) {
    static const Target& target = *Target::find();
    target({reinterpret_cast<const char*>(data), size});
    return 0;
}
