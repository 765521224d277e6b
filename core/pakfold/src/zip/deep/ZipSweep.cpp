// Both marks begin with the same two letters, of which the pair is rare in nearly all contents. So many positions are
// compared with both letters at once, and only where the pair stands is looked closer.
#include "zip/deep/ZipSweep.h"

#include <algorithm>
#include <cstring>

#include "ByteOrder.h"
#include "unarchiver/ScanBudget.h"
#include "zip/ZipConstants.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace ZOV_SPACE {
namespace {

constexpr std::size_t kMarkBytes = 4;

bool isMark(const char* bytes) {
    const std::uint32_t signature = loadU32(bytes);
    return signature == ZipConstants::LOCSIG || signature == ZipConstants::ENDSIG;
}

#ifdef __SSE2__

// All ones in each byte of 16 at which the pair of letters begins.
__m128i pairsIn(const char* bytes) {
    const auto load = [](const char* from) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from)); };
    return _mm_and_si128(_mm_cmpeq_epi8(load(bytes), _mm_set1_epi8('P')),
                         _mm_cmpeq_epi8(load(bytes + 1), _mm_set1_epi8('K')));
}

// How many positions from the start on were ruled out; less than a step is left, or there is a pair in the next one.
std::size_t skipInSteps(std::span<const char> bytes) {
    constexpr std::size_t kLane = 16, kStep = 4 * kLane;
    std::size_t at = 0;
    for (; at + kStep + 1 <= bytes.size(); at += kStep) {
        const char* const next = bytes.data() + at;
        const __m128i left = _mm_or_si128(pairsIn(next), pairsIn(next + kLane));
        const __m128i right = _mm_or_si128(pairsIn(next + 2 * kLane), pairsIn(next + 3 * kLane));
        if (_mm_movemask_epi8(_mm_or_si128(left, right)) != 0) break;
    }
    return at;
}

#else

std::size_t skipInSteps(std::span<const char>) { return 0; }

#endif

// Where the first mark begins that is there as a whole; the number of bytes when there is none.
std::size_t findMark(std::span<const char> bytes) {
    constexpr std::size_t kLookedAt = 64;  // One by one, behind what was ruled out.
    std::size_t at = 0;
    while (at + kMarkBytes <= bytes.size()) {
        at += skipInSteps(bytes.subspan(at));
        for (const std::size_t end = std::min(at + kLookedAt, bytes.size()); at < end; ++at) {
            const void* const next = std::memchr(bytes.data() + at, 'P', end - at);
            if (!next) {
                at = end;
                break;
            }
            at = static_cast<std::size_t>(static_cast<const char*>(next) - bytes.data());
            if (at + kMarkBytes <= bytes.size() && isMark(bytes.data() + at)) return at;
        }
    }
    return bytes.size();
}

}  // namespace

std::optional<ZipMark> nextZipMark(ContentBytes& bytes, std::int64_t from, std::int64_t to) {
    while (from < to) {
        const std::int64_t wanted = std::min(ContentBytes::kBlock - from % ContentBytes::kBlock, to - from);
        std::span<const char> piece = bytes.restOfBlock(from);
        if (piece.empty()) break;
        // Pieces overlap, so that a mark that begins in one is seen whole.
        piece = piece.first(std::min(piece.size(), static_cast<std::size_t>(wanted) + kMarkBytes - 1));
        const std::size_t found = findMark(piece);
        if (found < piece.size()) return ZipMark{from + static_cast<std::int64_t>(found), loadU32(&piece[found])};
        from += wanted;
        ScanBudget::worked(0);
    }
    return std::nullopt;
}

}  // namespace ZOV_SPACE
