#include "ContentBytes.h"

#include <algorithm>

#include "ByteOrder.h"

namespace ZOV_SPACE {
namespace {

constexpr std::size_t kWindow = 4096;  // Bytes at least; records are small, and often follow each other.

}  // namespace

std::span<const char> ContentBytes::at(std::int64_t position, std::size_t count) {
    if (position < 0 || position >= _size) return {};
    count = static_cast<std::size_t>(std::min<std::int64_t>(static_cast<std::int64_t>(count), _size - position));
    const std::span<const char> inPlace = _buffer.view(static_cast<long>(position));
    if (inPlace.size() >= count) return inPlace.first(count);
    if (held(position).size() < count) {
        _window.resize(std::max(count, kWindow));
        const int read = _buffer.read(static_cast<long>(position), _window.data(), static_cast<int>(_window.size()));
        _window.resize(static_cast<std::size_t>(std::max(read, 0)));
        _windowStart = position;
    }
    const std::span<const char> bytes = held(position);
    return bytes.first(std::min(bytes.size(), count));
}

std::span<const char> ContentBytes::from(std::int64_t position) {
    constexpr std::size_t kPiece = 65536;
    if (position < 0 || position >= _size) return {};
    std::span<const char> bytes = _buffer.view(static_cast<long>(position));
    if (bytes.empty()) bytes = held(position);
    return bytes.empty() ? at(position, kPiece) : bytes;
}

std::span<const char> ContentBytes::held(std::int64_t position) const {
    const std::int64_t end = _windowStart + static_cast<std::int64_t>(_window.size());
    if (position < _windowStart || position >= end) return {};
    return std::span(_window).subspan(static_cast<std::size_t>(position - _windowStart));
}

std::uint32_t ContentBytes::signatureAt(std::int64_t position) {
    const std::span<const char> bytes = at(position, sizeof(std::uint32_t));
    return bytes.size() < sizeof(std::uint32_t) ? 0 : loadU32(bytes.data());
}

}  // namespace ZOV_SPACE
