// Blocks of 256 KiB are read from the file and cut at line feeds where they lie; nothing is copied but the start of a
// line that a block's end cuts off, to the front of the next one. With a second thread, that one is being read while
// this one is cut. A line is the longest prefix of at most kMaxLine bytes that has no line feed before
// its last byte, so a NUL, which ends the text of its line, does not hide the line feed behind it.
#include "PatternLineReader.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Ascii.h"
#include "Decimal.h"
#include "Raise.h"
#include "SecondThread.h"
#include "Text.h"
#include "io/FileIo.h"

namespace {

using ZOV_SPACE::IOException;

namespace text = ZOV_SPACE::text;

constexpr ZOV_SPACE::ThrowUnit kUnit{"VolePattern"};

constexpr std::size_t kBlockSize = 256 * 1024;
constexpr std::size_t kHeadroom = 1024;
static_assert(kHeadroom >= PatternLineReader::kMaxLine);
constexpr std::string_view kCountHeader = "#count:";

// Most lines begin with a digit, which spares them the search.
bool isComment(std::string_view known) {
    if (!known.empty() && !ZOV_SPACE::ascii::isSpace(known.front())) return known.front() == '#';
    return text::trimStart(known).starts_with('#');
}

std::unique_ptr<char[]> newBuffer() {
    auto buffer = std::make_unique_for_overwrite<char[]>(kHeadroom + kBlockSize + PatternLineReader::kSlack);
    std::fill_n(buffer.get() + kHeadroom + kBlockSize, PatternLineReader::kSlack, '\0');
    return buffer;
}

// Fills in everything but the number. `whole` is a line as read.
void classify(std::string_view whole, PatternLine& line) {
    std::string_view known = text::upTo(whole, '\0');
    const bool comment = isComment(known);
    const bool count = comment && known.starts_with(kCountHeader);
    line.kind = count ? PatternLine::Kind::count : comment ? PatternLine::Kind::comment : PatternLine::Kind::data;
    line.count = count ? decimalPrefix(known.substr(kCountHeader.size())) : 0;
    line.hasNul = known.size() < whole.size();
    line.cut = !whole.ends_with('\n');
    if (known.ends_with('\n')) known.remove_suffix(1);
    line.text = known.ends_with('\r') ? text::trimEnd(known, text::kLineEnds) : known;
}

}  // namespace

PatternLineReader::PatternLineReader(ZOV_SPACE::OwnFd file, SecondThread* second)
    : _file(std::move(file)), _second(second), _block{newBuffer()}, _buffer(_block.buffer.get()) {
    struct stat status;
    if (::fstat(_file.get(), &status) != 0) kUnit.raise<IOException>(ZOV_SPACE::systemErrorText());
    _size = static_cast<std::uint64_t>(std::max<off_t>(status.st_size, 0));
    ::posix_fadvise(_file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    if (_size <= kBlockSize) _second = nullptr;
    if (!_second) return;
    _ahead.buffer = newBuffer();
    readAhead();
}

PatternLineReader::~PatternLineReader() {
    if (_second) _second->withdraw();
}

std::uint64_t PatternLineReader::bytesLeft() const {
    const std::uint64_t unread = _end - _begin;
    return unread + (_size > _read ? _size - _read : 0);
}

// Gets the next block with the unread bytes in front of it. False at the end of the file.
bool PatternLineReader::refill() {
    if (_beforeRefill) _beforeRefill();
    if (_second) {
        _second->settle();
        std::swap(_block, _ahead);
    }
    const std::size_t rest = _end - _begin;
    char* const place = _block.buffer.get() + kHeadroom - rest;
    std::memmove(place, _buffer + _begin, rest);
    _buffer = _block.buffer.get();
    _begin = kHeadroom - rest;
    _end = kHeadroom;
    if (!_second) readInto(_block);
    SecondThread* const again = std::exchange(_second, nullptr);
    if (_block.got < 0) {
        errno = _block.error;
        kUnit.raise<IOException>(ZOV_SPACE::systemErrorText());
    }
    _end += static_cast<std::size_t>(_block.got);
    _read += static_cast<std::uint64_t>(_block.got);
    if (_block.got == 0) return false;
    _second = again;
    if (_second) readAhead();
    return true;
}

void PatternLineReader::readInto(Block& block) const {
    block.got = ZOV_SPACE::readSome(_file.get(), block.buffer.get() + kHeadroom, kBlockSize);
    block.error = errno;
}

void PatternLineReader::readAhead() {
    _second->offer([this] { readInto(_ahead); });
}

bool PatternLineReader::takeEmptyLines(PatternLine& line) {
    const std::string_view unread(_buffer + _begin, _end - _begin);
    const std::size_t count = std::min(unread.find_first_not_of('\n'), unread.size());
    if (count == 0) return false;
    _begin += count;
    _lineNumber += count;
    line = {PatternLine::Kind::data, {}, 0, _lineNumber - 1, false, false};
    return true;
}

bool PatternLineReader::rest(PatternLine& line) const {
    if (_begin == _end) return false;
    classify({_buffer + _begin, _end - _begin}, line);
    line.number = _lineNumber;
    return true;
}

bool PatternLineReader::next(PatternLine& line) {
    for (;;) {
        if (takeEmptyLines(line)) return true;
        const char* const start = _buffer + _begin;
        const std::size_t window = std::min(_end - _begin, kMaxLine);
        const void* const newline = std::memchr(start, '\n', window);
        if (newline || window == kMaxLine) {
            const std::size_t length =
                newline ? static_cast<std::size_t>(static_cast<const char*>(newline) - start) + 1 : kMaxLine;
            classify({start, length}, line);
            line.number = _lineNumber;
            _lineNumber += newline != nullptr;
            _begin += length;
            return true;
        }
        if (!refill()) return false;
    }
}
