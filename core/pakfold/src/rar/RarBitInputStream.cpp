// The buffer holds a piece of the source. Looking at bits takes three bytes from the current one on, so the buffer is
// refilled two bytes before its end, and some zero bytes stand behind the source's last one. Consuming does not look at
// the buffer at all: it may lead past the valid bytes, and the next look settles what that means.
#include "rar/RarBitInputStream.h"

#include <algorithm>
#include <cstring>

#include "IOUtils.h"
#include "Raise.h"

namespace ZOV_SPACE {

static constexpr ThrowUnit kUnit{"../../core/pakfold/src/utils/RarStream"};

RarBitInputStream::RarBitInputStream(InputStream* source, std::int64_t total)
    : _source(source), _total(std::max<std::int64_t>(total, 0)) {
    fill("Unexpected EOF");
}

RarBitInputStream::~RarBitInputStream() = default;

// Moves the unread bytes to the front and reads up behind them. The position may be past the valid bytes, by what was
// consumed without looking.
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
    std::memset(_buffer.data() + _valid, 0, kSpare);
    if (count < wanted) _eofText = eofText;
    _checkAt = _eofText || _base + _valid == _total ? _valid : kBufferBytes - 2;
}

void RarBitInputStream::prepare() {
    while (_position >= _checkAt && _base + _valid < _total) {
        if (_eofText) kUnit.raise<IOException>(_eofText);
        fill("Unexcepted EOF");
    }
    if (_base + _position >= _total) kUnit.raise<IOException>("RarStream overflow.");
}

}  // namespace ZOV_SPACE
