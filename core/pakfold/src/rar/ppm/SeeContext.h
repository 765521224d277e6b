// SEE2_CONTEXT: an adaptive estimate of the escape's frequency (secondary escape estimation).
#ifndef PAKFOLD_RAR_PPM_SEECONTEXT_H
#define PAKFOLD_RAR_PPM_SEECONTEXT_H

#include <cstdint>

namespace ZOV_SPACE {

struct SEE2_CONTEXT {
    std::uint16_t sum;    // The mean, times 2 to the power of `shift`.
    unsigned char shift;  // Grows, so that the estimate becomes steadier.
    unsigned char count;  // Symbols to go until it does.

    std::uint32_t takeMean();
    void update();
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_PPM_SEECONTEXT_H
