// Each mark has a pair of letters that is rare in nearly all contents. Many positions are compared with all pairs at
// once, and only where one stands is looked closer.
#include "ArchiveMarks.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <string_view>

#include "unarchiver/ScanBudget.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace ZOV_SPACE {
namespace {

using namespace std::string_view_literals;

struct Letters {
    ArchiveMark::Kind kind;
    std::string_view all;
    std::size_t pairAt;
};
constexpr std::array<Letters, 6> kLetters{{{ArchiveMark::zipHeader, "PK\3\4"sv, 0},
                                           {ArchiveMark::zipEnd, "PK\5\6"sv, 0},
                                           {ArchiveMark::rar, "Rar!\x1A\7\0"sv, 3},
                                           {ArchiveMark::rar5, "Rar!\x1A\7\1\0"sv, 3},
                                           {ArchiveMark::sevenZip, "7z\xBC\xAF'\x1C"sv, 4},
                                           {ArchiveMark::cabinet, "MSCF\0\0\0\0"sv, 0}}};
constexpr std::size_t kLongest = 8;

const Letters& lettersOf(ArchiveMark::Kind kind) {
    return *std::find_if(kLetters.begin(), kLetters.end(),
                         [&](const Letters& letters) { return letters.kind == kind; });
}

// The pairs' first, or second, letters, each at the place that its lower four bits say: a byte is one of them if it is
// what stands at its own place.
using Places = std::array<char, 16>;

constexpr std::size_t placeOf(char letter) { return static_cast<unsigned char>(letter) % Places{}.size(); }

constexpr Places placesOf(std::size_t ofPair) {
    Places places{};
    for (std::size_t i = 0; i < places.size(); ++i) places[i] = static_cast<char>(i ^ 1);  // Of another place.
    for (const Letters& letters : kLetters) {
        const char letter = letters.all[letters.pairAt + ofPair];
        places[placeOf(letter)] = letter;
    }
    return places;
}
constexpr Places kFirst = placesOf(0), kSecond = placesOf(1);

constexpr bool isPair(char first, char second) {
    return kFirst[placeOf(first)] == first && kSecond[placeOf(second)] == second;
}
// No two have the same place, and all are ASCII, as the instruction that looks places up wants them.
static_assert(std::all_of(kLetters.begin(), kLetters.end(), [](const Letters& letters) {
    const char first = letters.all[letters.pairAt], second = letters.all[letters.pairAt + 1];
    return isPair(first, second) && static_cast<unsigned char>(first | second) < 0x80;
}));

// Where the next pair begins; the number of bytes when there is none.
std::size_t findPair(std::span<const char> bytes, std::size_t at) {
    for (; at + 1 < bytes.size(); ++at) {
        if (isPair(bytes[at], bytes[at + 1])) return at;
    }
    return bytes.size();
}

#if defined(__x86_64__) || defined(__i386__)

constexpr std::size_t kLane = 32;

// All ones at each of these bytes that is a letter.
[[gnu::target("avx2")]] __m256i lettersIn(const char* bytes, const Places& places) {
    const __m256i both = _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(places.data())));
    const __m256i there = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes));
    return _mm256_cmpeq_epi8(there, _mm256_shuffle_epi8(both, there));
}

// All ones at each byte of a lane with which a pair begins.
[[gnu::target("avx2")]] __m256i pairsIn(const char* bytes) {
    return _mm256_and_si256(lettersIn(bytes, kFirst), lettersIn(bytes + 1, kSecond));
}

[[gnu::target("avx2")]] bool hasAny(__m256i pairs) { return _mm256_testz_si256(pairs, pairs) == 0; }

// Where the next lane begins that has a pair, or where no whole one is left.
[[gnu::target("avx2")]] std::size_t skipLanes(std::span<const char> bytes, std::size_t at) {
    constexpr std::size_t kStep = 4 * kLane;
    for (; at + kStep < bytes.size(); at += kStep) {
        const char* const next = bytes.data() + at;
        const __m256i left = _mm256_or_si256(pairsIn(next), pairsIn(next + kLane));
        const __m256i right = _mm256_or_si256(pairsIn(next + 2 * kLane), pairsIn(next + 3 * kLane));
        if (hasAny(_mm256_or_si256(left, right))) break;
    }
    while (at + kLane < bytes.size() && !hasAny(pairsIn(bytes.data() + at))) at += kLane;
    return at;
}

// As findPair().
std::size_t findPairInLanes(std::span<const char> bytes, std::size_t at) {
    while (at < bytes.size()) {
        at = skipLanes(bytes, at);
        const std::size_t end = std::min(at + kLane, bytes.size());
        const std::size_t found = findPair(bytes.first(std::min(end + 1, bytes.size())), at);
        if (found < end) return found;
        at = end;
    }
    return bytes.size();
}

#endif

std::size_t nextPair(std::span<const char> bytes, std::size_t at) {
#if defined(__x86_64__) || defined(__i386__)
    static const bool isWide = __builtin_cpu_supports("avx2");
    if (isWide) return findPairInLanes(bytes, at);
#endif
    return findPair(bytes, at);
}

// The first mark that is there as a whole, whose position counts from the first of the bytes.
std::optional<ArchiveMark> findMark(std::span<const char> bytes, unsigned kinds) {
    const std::string_view all(bytes.data(), bytes.size());
    for (std::size_t at = nextPair(bytes, 0); at < bytes.size(); at = nextPair(bytes, at + 1)) {
        for (const Letters& letters : kLetters) {
            if ((letters.kind & kinds) == 0 || at < letters.pairAt) continue;
            const std::size_t begin = at - letters.pairAt;
            if (all.substr(begin).starts_with(letters.all)) {
                return ArchiveMark{static_cast<std::int64_t>(begin), letters.kind};
            }
        }
    }
    return std::nullopt;
}

}  // namespace

std::int64_t ArchiveMark::end() const { return position + static_cast<std::int64_t>(lettersOf(kind).all.size()); }

std::optional<ArchiveMark> nextArchiveMark(ContentBytes& bytes, unsigned kinds, std::int64_t from, std::int64_t to) {
    to = std::min(to, bytes.size());
    while (from < to) {
        const std::int64_t wanted = std::min(ContentBytes::kBlock - from % ContentBytes::kBlock, to - from);
        std::span<const char> piece = bytes.restOfBlock(from);
        if (piece.size() < static_cast<std::size_t>(wanted)) break;
        // Pieces overlap, so that a mark that begins in one is seen whole.
        piece = piece.first(std::min(piece.size(), static_cast<std::size_t>(wanted) + kLongest - 1));
        const auto found = findMark(piece, kinds);
        if (found && found->position < wanted) return ArchiveMark{from + found->position, found->kind};
        from += wanted;
        ScanBudget::worked(0);
    }
    return std::nullopt;
}

unsigned archiveMarksIn(ContentBytes& bytes, std::int64_t from, std::int64_t to) {
    unsigned kinds = 0;
    while (const auto mark = nextArchiveMark(bytes, kAllMarks & ~kinds, from, to)) {
        kinds |= mark->kind;
        from = mark->position + 1;
    }
    return kinds;
}

}  // namespace ZOV_SPACE
