#include "PatternLineReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Decimal.h"
#include "Raise.h"

namespace {

using ZOV_SPACE::IOException;

constexpr ZOV_SPACE::ThrowUnit kUnit{"VolePattern"};

constexpr std::size_t kBufferSize = 256 * 1024;
constexpr std::string_view kCountHeader = "#count:";
constexpr std::string_view kBlanks = " \t\r\n";

// Fills in everything but the number. `text` is a line as read.
void classify(std::string_view text, PatternLine& line) {
    if (const void* nul = std::memchr(text.data(), '\0', text.size())) {
        text = text.substr(0, static_cast<std::size_t>(static_cast<const char*>(nul) - text.data()));
    }
    const std::size_t first = text.find_first_not_of(kBlanks);
    const bool comment = first != std::string_view::npos && text[first] == '#';
    const bool count = comment && text.starts_with(kCountHeader);
    line.kind = count ? PatternLine::Kind::count : comment ? PatternLine::Kind::comment : PatternLine::Kind::data;
    line.count = count ? decimalPrefix(text.substr(kCountHeader.size())) : 0;
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
    line.text = text;
}

}  // namespace

PatternLineReader::PatternLineReader(ZOV_SPACE::OwnFd file)
    : _file(std::move(file)), _buffer(std::make_unique_for_overwrite<char[]>(kBufferSize)) {
    struct stat status;
    if (::fstat(_file.get(), &status) != 0) kUnit.raise<IOException>(ZOV_SPACE::systemErrorText());
    _size = static_cast<std::uint64_t>(std::max<off_t>(status.st_size, 0));
    ::posix_fadvise(_file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
}

std::uint64_t PatternLineReader::bytesLeft() const {
    const std::uint64_t unread = _end - _begin;
    return unread + (_size > _read ? _size - _read : 0);
}

// Moves the unread bytes to the front and reads more behind them. False at the end of the file.
bool PatternLineReader::refill() {
    std::memmove(_buffer.get(), _buffer.get() + _begin, _end - _begin);
    _end -= _begin;
    _begin = 0;
    ssize_t got;
    do {
        got = ::read(_file.get(), _buffer.get() + _end, kBufferSize - _end);
    } while (got < 0 && errno == EINTR);
    if (got < 0) kUnit.raise<IOException>(ZOV_SPACE::systemErrorText());
    _end += static_cast<std::size_t>(got);
    _read += static_cast<std::uint64_t>(got);
    return got > 0;
}

bool PatternLineReader::next(PatternLine& line) {
    for (;;) {
        const char* const start = _buffer.get() + _begin;
        const std::size_t window = std::min(_end - _begin, kMaxLine);
        const void* const newline = std::memchr(start, '\n', window);
        if (newline || window == kMaxLine) {
            const std::size_t length =
                newline ? static_cast<std::size_t>(static_cast<const char*>(newline) - start) + 1 : kMaxLine;
            classify({start, length}, line);
            line.number = ++_lineNumber;
            _begin += length;
            return true;
        }
        if (!refill()) return false;
    }
}
