// Two positions run round the ring: where the next byte goes, and the first byte that the target has not got. Between
// them lies what is pending. Before each step it is flushed when less than a margin is free, which is more than a step
// writes, so that nothing pending is overwritten. Longer matches are copied in pieces that keep to the margin.
#include "rar/RarBufferOutputStream.h"

#include <algorithm>
#include <utility>

#include "Raise.h"
#include "rar/RarCopy.h"
#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"../../core/pakfold/src/utils/RarStream"};

constexpr std::uint32_t kPiece = 256;  // Copied between two checks; below the margin, so that a match may be longer.
static_assert(kPiece < RarBufferOutputStream::kMargin);

}  // namespace

RarBufferOutputStream::RarBufferOutputStream(OutputStream* target, std::int64_t windowSize, std::int64_t limit,
                                             RarBufferOutputStream* previous)
    : RarBufferOutputStream(
          target, previous ? previous->releaseWindow() : RarWindow(static_cast<std::uint32_t>(windowSize)), limit) {
    if (!previous) return;
    _flushed = _write = previous->_write;
    _turned = previous->_turned;
}

RarBufferOutputStream::RarBufferOutputStream(OutputStream* target, RarWindow window, std::int64_t limit)
    : _target(target), _limit(limit), _window(std::move(window)), _bytes(_window.bytes()) {}

RarBufferOutputStream::~RarBufferOutputStream() = default;

RarWindow RarBufferOutputStream::releaseWindow() {
    _window.wroteTo(_write);
    return std::move(_window);
}

void RarBufferOutputStream::wrap() {
    _window.wroteTo(_window.ringSize());
    _write -= _window.ringSize();
    _turned = (_turned + _window.ringSize()) % _window.size();
}

void RarBufferOutputStream::copyContent(unsigned int distance, unsigned int length) {
    if (distance > _window.size()) kUnit.raise<IOException>("copyContent() overflow");
    while (length > 0) {
        const std::uint32_t piece = std::min<std::uint32_t>(length, kPiece);
        autoFlash();
        copyPiece(distance, piece);
        length -= piece;
    }
}

// REQUIRES: distance <= size of the window, length <= kPiece.
void RarBufferOutputStream::copyPiece(std::uint32_t distance, std::uint32_t length) {
    const std::uint32_t size = _window.ringSize();
    if (distance == 0) distance = _window.size();  // What stood at the write position one turn ago.
    std::uint32_t from = _write >= distance ? _write - distance : _write + (size - distance);
    if (length < size - std::max(from, _write)) {
        if (distance < kRarFarCopy && from < _write) {
            rarRepeatNear(_bytes + _write, distance, length);
            return advance(length);
        }
        if (distance >= kRarFarCopy) {
            rarCopyFar(_bytes + _write, _bytes + from, length);
            return advance(length);
        }
    }
    for (; length > 0; --length) {
        _bytes[_write] = _bytes[from];
        if (++from == size) from = 0;
        advance(1);
    }
}

void RarBufferOutputStream::writeToTarget(const unsigned char* bytes, std::uint32_t n) {
    _outputFailed = true;  // Until nothing was thrown.
    const auto fitting = static_cast<std::uint32_t>(std::clamp<std::int64_t>(_limit - _flushedTotal, 0, n));
    if (fitting > 0) {
        if (!_target->discards()) ScanBudget::chargeTakenBytes(fitting);
        _target->write(reinterpret_cast<const char*>(bytes), static_cast<int>(fitting));
        _flushedTotal += fitting;
    }
    if (fitting < n) kUnit.raise<IOException>("Rar output buffer overrun");
    _outputFailed = false;
}

void RarBufferOutputStream::flushPlain(std::uint32_t n) {
    if (n == 0) return;
    const std::uint32_t first = std::min(n, _window.ringSize() - _flushed);
    writeToTarget(_bytes + _flushed, first);
    writeToTarget(_bytes, n - first);
    passFlushed(n);
}

void RarBufferOutputStream::passFlushed(std::uint32_t n) {
    _flushed += n;
    if (_flushed >= _window.ringSize()) _flushed -= _window.ringSize();
    _flushedCount += n;
}

void RarBufferOutputStream::flashOutput(int max) {
    if (max > 0) flushPlain(std::min(pending(), static_cast<std::uint32_t>(max)));
}

void RarBufferOutputStream::flashOutput() { flushPlain(pending()); }

void RarBufferOutputStream::finishOutput() { flashOutput(); }

bool RarBufferOutputStream::limitReached() { return _flushedTotal + pending() >= _limit; }

}  // namespace ZOV_SPACE
