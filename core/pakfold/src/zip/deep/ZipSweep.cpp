// Both marks begin with the same two letters, of which the pair is rare in nearly all contents. So many positions are
// compared with both letters at once, and only where the pair stands is looked closer.
#include "zip/deep/ZipSweep.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "ByteOrder.h"
#include "unarchiver/ScanBudget.h"
#include "zip/ZipConstants.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace ZOV_SPACE {
namespace {

constexpr std::int64_t kPiece = 65536;
constexpr std::size_t kMarkBytes = 4;

bool isMark(const char* bytes) {
    const std::uint32_t signature = loadU32(bytes);
    return signature == ZipConstants::LOCSIG || signature == ZipConstants::ENDSIG;
}

#ifdef __SSE2__

// The positions, one bit each, at which the pair of letters stands in the next 16.
std::uint32_t pairsIn(const char* bytes) {
    const auto load = [](const char* from) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from)); };
    const __m128i first = _mm_cmpeq_epi8(load(bytes), _mm_set1_epi8('P'));
    const __m128i second = _mm_cmpeq_epi8(load(bytes + 1), _mm_set1_epi8('K'));
    return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_and_si128(first, second)));
}

// How many positions from the start on were ruled out; less than a step is left, or a mark is there.
std::size_t skipInSteps(std::span<const char> bytes) {
    constexpr std::size_t kStep = 16;
    std::size_t at = 0;
    for (; at + kStep + kMarkBytes <= bytes.size(); at += kStep) {
        for (std::uint32_t pairs = pairsIn(bytes.data() + at); pairs != 0; pairs &= pairs - 1) {
            const auto i = static_cast<std::size_t>(std::countr_zero(pairs));
            if (isMark(bytes.data() + at + i)) return at + i;
        }
    }
    return at;
}

#else

std::size_t skipInSteps(std::span<const char>) { return 0; }

#endif

// Where the first mark begins that is there as a whole; the number of bytes when there is none.
std::size_t findMark(std::span<const char> bytes) {
    std::size_t at = skipInSteps(bytes);
    while (at + kMarkBytes <= bytes.size()) {
        const void* const next = std::memchr(bytes.data() + at, 'P', bytes.size() - at);
        if (!next) break;
        at = static_cast<std::size_t>(static_cast<const char*>(next) - bytes.data());
        if (at + kMarkBytes <= bytes.size() && isMark(bytes.data() + at)) return at;
        ++at;
    }
    return bytes.size();
}

}  // namespace

std::optional<ZipMark> nextZipMark(ZipBytes& bytes, std::int64_t from, std::int64_t to) {
    while (from < to) {
        const std::int64_t wanted = std::min(kPiece, to - from);
        // Pieces overlap, so that a mark that begins in one is seen whole.
        const std::span<const char> piece = bytes.at(from, static_cast<std::size_t>(wanted) + kMarkBytes - 1);
        if (piece.empty()) break;
        const std::size_t found = findMark(piece);
        if (found < piece.size()) return ZipMark{from + static_cast<std::int64_t>(found), loadU32(&piece[found])};
        from += wanted;
        ScanBudget::worked(0);
    }
    return std::nullopt;
}

}  // namespace ZOV_SPACE
