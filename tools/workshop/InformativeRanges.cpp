#include "InformativeRanges.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace {

// How often each value is in a window that moves on.
template <std::size_t kValues>
class Census {
public:
    void add(std::size_t value) { _different += _counts[value]++ == 0; }
    void remove(std::size_t value) { _different -= --_counts[value] == 0; }
    unsigned different() const { return _different; }

private:
    std::vector<std::uint16_t> _counts = std::vector<std::uint16_t>(kValues);
    unsigned _different = 0;
};

class Window {
public:
    explicit Window(std::span<const unsigned char> bytes) : _bytes(bytes) {}

    void growTo(std::size_t end) {
        for (; _end < end; ++_end) {
            _singles.add(_bytes[_end]);
            if (_end > _begin) _pairs.add(pairAt(_end - 1));
        }
    }
    void shrinkTo(std::size_t begin) {
        for (; _begin < begin; ++_begin) {
            _singles.remove(_bytes[_begin]);
            if (_begin + 1 < _end) _pairs.remove(pairAt(_begin));
        }
    }

    // 0: tells nothing.
    unsigned score() const {
        const auto length = static_cast<unsigned>(_end - _begin);
        const auto start = _bytes.subspan(_begin, 4);
        const bool startsFlat = std::count(start.begin(), start.end(), start[0]) == 4;
        const bool repeats = _singles.different() < std::min(6U, length / 2) || _pairs.different() < length / 8;
        return startsFlat || repeats ? 0 : _singles.different() + _pairs.different();
    }

private:
    std::size_t pairAt(std::size_t at) const { return _bytes[at] * std::size_t{256} + _bytes[at + 1]; }

    std::span<const unsigned char> _bytes;
    std::size_t _begin = 0, _end = 0;
    Census<256> _singles;
    Census<65536> _pairs;
};

struct Scored {
    unsigned score;
    std::size_t begin;
};

std::vector<Scored> scoredRanges(std::span<const unsigned char> bytes, std::size_t length) {
    // Ranges that begin a few bytes apart hardly differ.
    const std::size_t step = std::max<std::size_t>(length / 8, 1);
    std::vector<Scored> ranges;
    Window window(bytes);
    for (std::size_t begin = 0; begin + length <= bytes.size(); begin += step) {
        window.growTo(begin + length);
        window.shrinkTo(begin);
        if (const unsigned score = window.score()) ranges.push_back({score, begin});
    }
    std::sort(ranges.begin(), ranges.end(), [](const Scored& a, const Scored& b) {
        return a.score != b.score ? a.score > b.score : a.begin < b.begin;
    });
    return ranges;
}

}  // namespace

std::vector<std::size_t> informativeRanges(std::span<const unsigned char> bytes, std::size_t length, std::size_t most) {
    std::vector<std::size_t> chosen;
    for (const Scored& range : scoredRanges(bytes, length)) {
        if (chosen.size() >= most) break;
        const bool overlaps = std::any_of(chosen.begin(), chosen.end(), [&](std::size_t other) {
            return range.begin < other + length && other < range.begin + length;
        });
        if (!overlaps) chosen.push_back(range.begin);
    }
    return chosen;
}
