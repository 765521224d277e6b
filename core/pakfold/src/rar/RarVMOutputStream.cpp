// Filters wait in the order of their blocks. A flush writes plain bytes up to the first block; once that is complete,
// the filter takes it out of the window, and what it makes of it goes to the target, or to the next filter of the same
// block. The window keeps the bytes as they were decoded, because matches refer to those. At the entry's end, filters
// whose blocks never became complete are dropped, and their bytes written as they are, so that they are looked at.
#include "rar/RarVMOutputStream.h"

#include <algorithm>
#include <utility>

namespace ZOV_SPACE {

RarOutputFilter::~RarOutputFilter() = default;

RarVMOutputStream::RarVMOutputStream(OutputStream* target, std::int64_t windowSize, std::int64_t limit,
                                     RarBufferOutputStream* previous)
    : RarBufferOutputStream(target, windowSize, limit, previous) {}

RarVMOutputStream::RarVMOutputStream(OutputStream* target, RarWindow window, std::int64_t limit)
    : RarBufferOutputStream(target, std::move(window), limit) {}

RarVMOutputStream::~RarVMOutputStream() = default;

bool RarVMOutputStream::registerFilter(std::unique_ptr<RarOutputFilter> filter) {
    const std::uint32_t size = windowSize();
    const std::uint32_t ahead = (filter->getStart() % size + size - writePosition()) % size;
    const std::int64_t start = writeCount() + ahead;
    if (std::int64_t{filter->getLength()} > std::int64_t{size} - 2 * kMargin) return false;
    const auto sameBlock = [start](const RarQueuedFilter& queued) { return queued.start == start; };
    if (_filters.size() >= kMostPending ||
        static_cast<std::size_t>(std::count_if(_filters.begin(), _filters.end(), sameBlock)) >= kMostOnOneBlock) {
        _troubles.note(RarTrouble::filtersSpent);
        return false;
    }
    const auto behind = std::find_if(_filters.begin(), _filters.end(),
                                     [start](const RarQueuedFilter& queued) { return queued.start > start; });
    _filters.insert(behind, RarQueuedFilter{start, std::move(filter)});
    return true;
}

void RarVMOutputStream::dropFilters() {
    if (!_filters.empty()) _troubles.note(RarTrouble::filterNotRun);
    _filters.clear();
}

void RarVMOutputStream::flashOutput() {
    while (flushToFirstFilter()) runFirstFilter();
}

// Writes the plain bytes before the first filter's block; whether that block is complete.
bool RarVMOutputStream::flushToFirstFilter() {
    const auto useless = [this](const RarQueuedFilter& queued) {
        return queued.start < flushedCount() || queued.filter->getLength() == 0;
    };
    const auto firstUseful = std::find_if_not(_filters.begin(), _filters.end(), useless);
    if (std::any_of(_filters.begin(), firstUseful, [](const auto& queued) { return queued.filter->getLength() > 0; })) {
        _troubles.note(RarTrouble::filterNotRun);
    }
    _filters.erase(_filters.begin(), firstUseful);
    if (_filters.empty() || _filters.front().start >= writeCount()) {
        flushPlain(pending());
        return false;
    }
    flushPlain(static_cast<std::uint32_t>(_filters.front().start - flushedCount()));
    return pending() >= _filters.front().filter->getLength();
}

void RarVMOutputStream::runFirstFilter() {
    const std::unique_ptr<RarOutputFilter> filter = std::move(_filters.front().filter);
    _filters.erase(_filters.begin());
    const std::uint32_t length = filter->getLength();
    const std::uint32_t first = std::min(length, ringSize() - flushedPosition());
    filter->copy(window() + flushedPosition(), first);
    if (!filter->ready()) filter->copy(window(), length - first);
    filter->execute(this, &_filters);
    passFlushed(length);
}

void RarVMOutputStream::finishOutput() {
    flashOutput();
    dropFilters();
    flashOutput();
}

// Bytes of a block do not count before its filter has made its own of them.
bool RarVMOutputStream::limitReached() {
    if (!RarBufferOutputStream::limitReached()) return false;
    if (_filters.empty()) return true;
    flashOutput();
    return pending() == 0 && RarBufferOutputStream::limitReached();
}

}  // namespace ZOV_SPACE
