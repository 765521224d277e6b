#include "CoveredRanges.h"

#include <algorithm>
#include <iterator>
#include <limits>

namespace ZOV_SPACE {

void CoveredRanges::add(std::int64_t start, std::int64_t end) {
    if (end <= start) return;
    auto next = _endByStart.upper_bound(start);
    if (next != _endByStart.begin() && std::prev(next)->second >= start) --next;
    while (next != _endByStart.end() && next->first <= end) {
        start = std::min(start, next->first);
        end = std::max(end, next->second);
        next = _endByStart.erase(next);
    }
    if (_endByStart.size() < kMost) _endByStart.emplace_hint(next, start, end);
}

std::int64_t CoveredRanges::endAt(std::int64_t position) const {
    const auto behind = _endByStart.upper_bound(position);
    return behind == _endByStart.begin() ? position : std::max(position, std::prev(behind)->second);
}

std::int64_t CoveredRanges::nextBehind(std::int64_t position) const {
    const auto behind = _endByStart.upper_bound(position);
    return behind == _endByStart.end() ? std::numeric_limits<std::int64_t>::max() : behind->first;
}

}  // namespace ZOV_SPACE
