#include "RarPacker.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "support/PpmEncoder.h"
#include "support/RarEncoder.h"

namespace {

using ZOV_SPACE::RarEncoder;

constexpr std::uint32_t kLongest = 257;  // Of a match; one at a far distance could be a little longer.
constexpr std::uint32_t kFarthestShort = 256;
constexpr int kTokensPerBlock = 1 << 15;

struct Match {
    std::uint32_t distance = 0;
    std::uint32_t length = 0;
};

// Finds earlier occurrences of what stands at a position.
class MatchFinder {
public:
    explicit MatchFinder(std::string_view content)
        : _content(content), _pairs(1U << 16, kNone), _triples(1U << kHashBits, kNone), _previous(content.size()) {}

    // Every position must be entered, in order, after it was looked up.
    void enter(std::uint32_t at) {
        if (at + 3 > _content.size()) return;
        std::uint32_t& latest = _triples[hash(at)];
        _previous[at] = latest;
        latest = _pairs[pair(at)] = at;
    }

    std::uint32_t lengthAt(std::uint32_t at, std::uint32_t distance) const {
        if (distance == 0 || distance > at) return 0;
        const auto most = std::min<std::size_t>(_content.size() - at, kLongest);
        const char* const here = _content.data() + at;
        return static_cast<std::uint32_t>(std::mismatch(here, here + most, here - distance).first - here);
    }

    // The longest match among the latest candidates, the nearest of several; far ones must be worth their bits.
    Match longest(std::uint32_t at) const {
        Match best;
        if (at + 3 > _content.size()) return best;
        std::uint32_t candidate = _triples[hash(at)];
        for (int i = 0; i < kCandidates && candidate != kNone; ++i, candidate = _previous[candidate]) {
            const std::uint32_t distance = at - candidate;
            if (distance >= RarEncoder::kWindowBytes) break;
            const std::uint32_t length = lengthAt(at, distance);
            const std::uint32_t least = distance > 0x3FFFF ? 6 : distance > 0x1FFF ? 5 : distance > 0x200 ? 4 : 3;
            if (length > best.length && length >= least) best = {distance, length};
        }
        return best;
    }

    // The distance of the same two bytes, or 0 when it exceeds that of a match of two bytes.
    std::uint32_t shortDistance(std::uint32_t at) const {
        if (at + 3 > _content.size()) return 0;
        const std::uint32_t latest = _pairs[pair(at)];
        return latest == kNone || at - latest > kFarthestShort ? 0 : at - latest;
    }

private:
    static constexpr int kHashBits = 17;
    static constexpr int kCandidates = 16;
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    std::uint32_t byte(std::uint32_t at) const { return static_cast<unsigned char>(_content[at]); }
    std::uint32_t pair(std::uint32_t at) const { return byte(at) | byte(at + 1) << 8; }
    std::uint32_t hash(std::uint32_t at) const {
        return (pair(at) | byte(at + 2) << 16) * 0x9E3779B1U >> (32 - kHashBits);
    }

    std::string_view _content;
    std::vector<std::uint32_t> _pairs;     // The latest position of each,
    std::vector<std::uint32_t> _triples;   // and of each hash of three bytes,
    std::vector<std::uint32_t> _previous;  // and, of each position, the one before it with its hash.
};

class LzPacker {
public:
    explicit LzPacker(std::string_view content) : _content(content), _finder(content), _encoder(29) {}

    std::string pack() {
        std::uint32_t at = 0;
        for (int tokens = 1; at < _content.size(); ++tokens) {
            const std::uint32_t end = at + putToken(at);
            for (; at < end; ++at) _finder.enter(at);
            if (tokens % kTokensPerBlock == 0) _encoder.nextBlock();
        }
        return _encoder.finish(true);
    }

private:
    // Returns how many bytes it stands for.
    std::uint32_t putToken(std::uint32_t at) {
        const Match best = _finder.longest(at);
        const Match old = longestOld(at);
        if (old.length >= 2 && old.length + 1 >= best.length) return putOld(old);
        if (best.length >= 3 && _finder.longest(at + 1).length <= best.length) {
            _encoder.match(best.distance, best.length);
            return remember(best, _old.end() - 1);
        }
        if (const std::uint32_t distance = best.length == 0 ? _finder.shortDistance(at) : 0) {
            _encoder.shortMatch(distance);
            return remember({distance, 2}, _old.end() - 1);
        }
        _encoder.literal(_content[at]);
        return 1;
    }

    Match longestOld(std::uint32_t at) const {
        Match best;
        for (const std::uint32_t distance : _old) {
            const std::uint32_t length = _finder.lengthAt(at, distance);
            if (length > best.length) best = {distance, length};
        }
        return best;
    }

    std::uint32_t putOld(Match match) {
        const auto place = std::find(_old.begin(), _old.end(), match.distance);
        if (place == _old.begin() && match.length == _lastLength) {
            _encoder.repeatMatch();
        } else {
            _encoder.oldDistance(static_cast<std::uint32_t>(place - _old.begin()), match.length);
        }
        return remember(match, place);
    }

    std::uint32_t remember(Match match, std::array<std::uint32_t, 4>::iterator dropped) {
        std::copy_backward(_old.begin(), dropped, dropped + 1);
        _old[0] = match.distance;
        return _lastLength = match.length;
    }

    std::string_view _content;
    MatchFinder _finder;
    RarEncoder _encoder;
    std::array<std::uint32_t, 4> _old{};  // The last distances, latest first.
    std::uint32_t _lastLength = 0;
};

}  // namespace

std::string packRarLz(std::string_view content) { return LzPacker(content).pack(); }

std::string packRarPpm(std::string_view content) {
    ZOV_SPACE::PpmEncoder encoder(6, 16);
    encoder.text(content);
    return encoder.finish();
}
