// A lane takes the next content, the longest first, as soon as its own has no whole block left. What is left of one
// then, with the padding, is mixed in by Md5; so is all that is left of the last ones.
#include "Md5Lanes.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "ByteOrder.h"
#include "Md5Rounds.h"

namespace {

void complete(Md5Content& content, Md5 md5, std::size_t done) {
    const auto rest = content.bytes.subspan(done);
    md5.MD5Update(rest.data(), rest.size());
    md5.MD5Final(content.digest.data());
}

#if defined(__x86_64__) || defined(__i386__)

constexpr std::size_t kLanes = 8;
// As many contents one after the other take longer than a vector that has only them in it.
constexpr std::size_t kFewest = 3;

// Each word of a state, or of a block, of all lanes.
using Words [[gnu::vector_size(32)]] = std::uint32_t;
using Columns = std::array<std::uint32_t, kLanes>;
using Blocks = std::array<const char*, kLanes>;

template <int Round, int I>
[[gnu::target("avx2"), gnu::always_inline]] inline void step(Words& a, const Words& b, const Words& c, const Words& d,
                                                             const Words* block) {
    constexpr int kShift = md5::kShifts[Round][I % 4];
    // cppcheck-suppress arrayIndexOutOfBounds
    a += block[md5::wordIndex<Round>(I)] + md5::kSines[Round * 16 + I];
    if constexpr (Round == 0) {
        a += d ^ (b & (c ^ d));
    } else if constexpr (Round == 1) {
        a += c ^ (d & (b ^ c));
    } else if constexpr (Round == 2) {
        a += b ^ (c ^ d);
    } else {
        a += c ^ (b | ~d);
    }
    a = (a << kShift | a >> (32 - kShift)) + b;
}

template <int Round, int I = 0>
[[gnu::target("avx2"), gnu::always_inline]] inline void round(Words& a, Words& b, Words& c, Words& d,
                                                              const Words* block) {
    step<Round, I>(a, b, c, d, block);
    step<Round, I + 1>(d, a, b, c, block);
    step<Round, I + 2>(c, d, a, b, block);
    step<Round, I + 3>(b, c, d, a, block);
    if constexpr (I + 4 < 16) round<Round, I + 4>(a, b, c, d, block);
}

[[gnu::target("avx2"), gnu::always_inline]] inline void load(Words* block, const Blocks& from) {
    for (std::size_t i = 0; i < 16; ++i) {
        for (std::size_t lane = 0; lane < kLanes; ++lane) block[i][lane] = ZOV_SPACE::loadU32(from[lane] + 4 * i);
    }
}

// Mixes so many blocks of each lane into its column of the state.
[[gnu::target("avx2")]] void mix(std::array<Columns, 4>& columns, Blocks from, std::size_t blockCount) {
    Words state[4];
    static_assert(sizeof state == sizeof columns);
    std::memcpy(state, columns.data(), sizeof state);
    auto& [a, b, c, d] = state;
    for (; blockCount > 0; --blockCount) {
        Words block[16];
        load(block, from);
        const Words a0 = a, b0 = b, c0 = c, d0 = d;
        round<0>(a, b, c, d, block);
        round<1>(a, b, c, d, block);
        round<2>(a, b, c, d, block);
        round<3>(a, b, c, d, block);
        a += a0;
        b += b0;
        c += c0;
        d += d0;
        for (const char*& next : from) next += Md5::kBlockSize;
    }
    std::memcpy(columns.data(), state, sizeof state);
}

class Lanes {
public:
    // The contents in the order in which they are taken.
    explicit Lanes(std::span<Md5Content* const> waiting) : _waiting(waiting) {}

    void run() {
        for (std::size_t i = 0; i < kLanes; ++i) take(i);
        while (_busy >= kFewest) {
            advance();
            for (std::size_t i = 0; i < kLanes; ++i) {
                if (_lanes[i].content && blocksLeft(_lanes[i]) == 0) finish(i), take(i);
            }
        }
        for (std::size_t i = 0; i < kLanes; ++i) {
            if (_lanes[i].content) finish(i);
        }
    }

private:
    struct Lane {
        Md5Content* content = nullptr;
        std::size_t done = 0;  // Bytes.
    };

    static std::size_t blocksLeft(const Lane& lane) {
        return (lane.content->bytes.size() - lane.done) / Md5::kBlockSize;
    }

    void take(std::size_t i) {
        if (_waiting.empty()) return;
        _lanes[i] = {_waiting.front(), 0};
        _waiting = _waiting.subspan(1);
        for (std::size_t word = 0; word < _columns.size(); ++word) _columns[word][i] = md5::kStart[word];
        ++_busy;
    }

    // As far as the shortest goes.
    void advance() {
        const Lane* shortest = nullptr;
        for (const Lane& lane : _lanes) {
            if (lane.content && (!shortest || blocksLeft(lane) < blocksLeft(*shortest))) shortest = &lane;
        }
        const std::size_t blocks = blocksLeft(*shortest);
        Blocks from;
        for (std::size_t i = 0; i < kLanes; ++i) {
            const Lane& lane = _lanes[i].content ? _lanes[i] : *shortest;  // A lane without a content does the same.
            from[i] = lane.content->bytes.data() + lane.done;
        }
        mix(_columns, from, blocks);
        for (Lane& lane : _lanes) lane.done += blocks * Md5::kBlockSize;
    }

    void finish(std::size_t i) {
        Md5::State state;
        for (std::size_t word = 0; word < state.size(); ++word) state[word] = _columns[word][i];
        complete(*_lanes[i].content, Md5(state, _lanes[i].done), _lanes[i].done);
        _lanes[i].content = nullptr;
        --_busy;
    }

    std::span<Md5Content* const> _waiting;
    std::array<Lane, kLanes> _lanes;
    std::size_t _busy = 0;
    std::array<Columns, 4> _columns = {};
};

#endif

}  // namespace

void digestTogether(std::span<Md5Content> contents) {
#if defined(__x86_64__) || defined(__i386__)
    static const bool isWide = __builtin_cpu_supports("avx2");
    if (isWide && contents.size() >= kFewest) {
        std::vector<Md5Content*> longestFirst;
        for (Md5Content& content : contents) longestFirst.push_back(&content);
        std::sort(longestFirst.begin(), longestFirst.end(),
                  [](const Md5Content* a, const Md5Content* b) { return a->bytes.size() > b->bytes.size(); });
        return Lanes(longestFirst).run();
    }
#endif
    for (Md5Content& content : contents) complete(content, Md5(), 0);
}
