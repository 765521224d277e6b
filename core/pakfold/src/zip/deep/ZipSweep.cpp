// Both marks begin with the same two letters, of which the pair is rare in nearly all contents. So many positions are
// compared with both letters at once, and only where the pair stands is looked closer.
#include "zip/deep/ZipSweep.h"

#include <algorithm>
#include <cstring>

#include "ByteOrder.h"
#include "unarchiver/ScanBudget.h"
#include "zip/ZipConstants.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace ZOV_SPACE {
namespace {

constexpr std::size_t kMarkBytes = 4;

bool isMark(const char* bytes) {
    const std::uint32_t signature = loadU32(bytes);
    return signature == ZipConstants::LOCSIG || signature == ZipConstants::ENDSIG;
}

#if defined(__x86_64__) || defined(__i386__)

// All ones in each byte of 32 at which the pair of letters begins.
[[gnu::target("avx2")]] __m256i pairsIn(const char* bytes) {
    const __m256i first = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes));
    const __m256i second = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes + 1));
    return _mm256_and_si256(_mm256_cmpeq_epi8(first, _mm256_set1_epi8('P')),
                            _mm256_cmpeq_epi8(second, _mm256_set1_epi8('K')));
}

[[gnu::target("avx2")]] std::size_t skipInWideSteps(std::span<const char> bytes) {
    constexpr std::size_t kLane = 32, kStep = 4 * kLane;
    std::size_t at = 0;
    for (; at + kStep + 1 <= bytes.size(); at += kStep) {
        const char* const next = bytes.data() + at;
        const __m256i left = _mm256_or_si256(pairsIn(next), pairsIn(next + kLane));
        const __m256i right = _mm256_or_si256(pairsIn(next + 2 * kLane), pairsIn(next + 3 * kLane));
        if (_mm256_movemask_epi8(_mm256_or_si256(left, right)) != 0) break;
    }
    return at;
}

// How many positions from the start on were ruled out; less than a step is left, or there is a pair in the next one.
std::size_t skipInSteps(std::span<const char> bytes) {
    static const bool isWide = __builtin_cpu_supports("avx2");
    return isWide ? skipInWideSteps(bytes) : 0;
}

#else

std::size_t skipInSteps(std::span<const char>) { return 0; }

#endif

// Where the first mark begins that is there as a whole; the number of bytes when there is none.
std::size_t findMark(std::span<const char> bytes) {
    constexpr std::size_t kLookedAt = 128;  // One by one, behind what was ruled out.
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
