#include <algorithm>
#include <cstring>

#include "Raise.h"
#include "utils/IOUtils.h"
#include "utils/RarStream.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"../../core/pakfold/src/utils/RarStream"};

}  // namespace

RarBitInputStream::RarBitInputStream(InputStream* source, std::int64_t total)
    : _source(source), _total(std::max<std::int64_t>(total, 0)) {
    fill("Unexpected EOF");
}

RarBitInputStream::~RarBitInputStream() = default;

// Moves the unread bytes to the front and reads up behind them. The position may be past the valid bytes by the few
// that the last look reached beyond them.
void RarBitInputStream::fill(const char* eofText) {
    const std::uint32_t position = std::min(_position, _valid);
    const std::uint32_t kept = _valid - position;
    std::memmove(_buffer.data(), _buffer.data() + position, kept);
    _base += position;
    _position -= position;
    const auto wanted = std::min<std::int64_t>(_total - _base - kept, kBufferBytes - kept);
    const int count =
        IOUtils::readFull(*_source, reinterpret_cast<char*>(_buffer.data()) + kept, static_cast<int>(wanted));
    _valid = kept + static_cast<std::uint32_t>(std::max(count, 0));
    std::memset(_buffer.data() + _valid, 0, _buffer.size() - _valid);
    if (count < wanted) kUnit.raise<IOException>(eofText);
}

unsigned int RarBitInputStream::getBits() {
    if (_position >= kBufferBytes - 2 && _base + _valid < _total) fill("Unexcepted EOF");
    if (_base + _position >= _total) kUnit.raise<IOException>("RarStream overflow.");
    const unsigned char* const next = _buffer.data() + _position;
    const std::uint32_t bits = std::uint32_t{next[0]} << 16 | std::uint32_t{next[1]} << 8 | next[2];
    return (bits >> (8 - _bit)) & 0xFFFF;
}

int RarBitInputStream::addBits(int n) {
    if (n < 0 || n > 16) return 1;
    _bit += static_cast<std::uint32_t>(n);
    _position += _bit / 8;
    _bit %= 8;
    return 0;
}

}  // namespace ZOV_SPACE
