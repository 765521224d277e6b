#include "rar/RarCopy.h"

#include <algorithm>
#include <cstring>

namespace ZOV_SPACE {

void rarRepeatNear(unsigned char* to, std::uint32_t distance, std::uint32_t length) {
    const unsigned char* const from = to - distance;
    if (distance == 1) {
        std::memset(to, *from, length);
    } else if (length < 16) {
        for (std::uint32_t i = 0; i < length; ++i) to[i] = from[i];
    } else {
        // What is copied repeats with the distance, so that twice as much can be copied each time.
        for (std::uint32_t period = distance; length > 0; period *= 2) {
            const std::uint32_t piece = std::min(period, length);
            std::memcpy(to, from, piece);
            to += piece;
            length -= piece;
        }
    }
}

}  // namespace ZOV_SPACE
