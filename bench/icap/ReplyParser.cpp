#include "ReplyParser.h"

#include <strings.h>

#include <algorithm>
#include <charconv>
#include <system_error>

namespace {

constexpr std::uint64_t kMostHeaderBytes = 1U << 20;

bool sameName(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::string_view trimmed(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

std::uint64_t numberOf(std::string_view text, int base, const char* what) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc() || end != text.data() + text.size()) {
        throw MalformedReply(std::string(what) + " is no number: " + std::string(text.substr(0, 100)));
    }
    return number;
}

// What stands before the separator; `text` becomes what stands behind it.
std::string_view cutAt(char separator, std::string_view& text) {
    const std::size_t end = std::min(text.find(separator), text.size());
    const std::string_view head = trimmed(text.substr(0, end));
    text = trimmed(text.substr(std::min(end + 1, text.size())));
    return head;
}

}  // namespace

void ReplyParser::expect(std::string_view sentBody) {
    *this = ReplyParser();
    _sentBody = sentBody;
}

std::size_t ReplyParser::feed(std::string_view bytes) {
    const std::size_t size = bytes.size();
    while (!bytes.empty() && !complete()) step(bytes);
    return size - bytes.size();
}

void ReplyParser::step(std::string_view& bytes) {
    if (_state == State::kEncapsulated || _state == State::kChunk) {
        const std::string_view part =
            bytes.substr(0, static_cast<std::size_t>(std::min<std::uint64_t>(_left, bytes.size())));
        bytes.remove_prefix(part.size());
        _left -= part.size();
        if (_state == State::kChunk) takeBody(part);
        if (_left != 0) return;
        if (_state == State::kChunk) {
            _state = State::kChunkEnd;
        } else {
            _state = _hasBody ? State::kChunkSize : State::kComplete;
        }
        return;
    }
    const std::size_t end = std::min(bytes.find('\n'), bytes.size());
    _headerBytes += end + 1;
    if (_state <= State::kHeaders && _headerBytes > kMostHeaderBytes) throw MalformedReply("endless headers");
    if (_line.size() + end > kMostHeaderBytes) throw MalformedReply("an endless line");
    const bool whole = end < bytes.size();
    if (!_line.empty() || !whole) _line.append(bytes.substr(0, end));
    std::string_view line = _line.empty() ? bytes.substr(0, end) : std::string_view(_line);
    bytes.remove_prefix(end + (whole ? 1 : 0));
    if (!whole) return;
    if (line.ends_with('\r')) line.remove_suffix(1);
    takeLine(line);
    _line.clear();
}

void ReplyParser::takeLine(std::string_view line) {
    switch (_state) {
        case State::kStatusLine:
            takeStatus(line);
            break;
        case State::kHeaders:
            line.empty() ? endHeaders() : takeHeader(line);
            break;
        case State::kChunkSize:
            takeChunkSize(line);
            break;
        case State::kChunkEnd:
            if (!line.empty()) throw MalformedReply("a chunk is longer than its size says");
            _state = State::kChunkSize;
            break;
        default:
            if (line.empty()) endBody();
    }
}

void ReplyParser::takeStatus(std::string_view line) {
    if (!line.starts_with("ICAP/1.0 ") || line.size() < 12) {
        throw MalformedReply("no status line: " + std::string(line.substr(0, 100)));
    }
    _reply.status = static_cast<int>(numberOf(line.substr(9, 3), 10, "a status"));
    _state = State::kHeaders;
}

void ReplyParser::takeHeader(std::string_view line) {
    const std::string_view name = cutAt(':', line);
    if (sameName(name, "X-Infection-Found")) {
        _reply.found = true;
    } else if (sameName(name, "ISTag")) {
        _reply.isTag = line;
    } else if (sameName(name, "Connection")) {
        _reply.closes = sameName(line, "close");
    } else if (sameName(name, "Encapsulated")) {
        takeEncapsulated(line);
    }
}

void ReplyParser::takeEncapsulated(std::string_view value) {
    std::uint64_t offset = 0;
    while (!value.empty()) {
        std::string_view section = cutAt(',', value);
        const std::string_view name = cutAt('=', section);
        offset = numberOf(section, 10, "an offset");
        if (offset < _headersSize || offset > kMostHeaderBytes) throw MalformedReply("an impossible offset");
        _headersSize = offset;
        _hasBody = name.ends_with("-body") && name != "null-body";
        if (value.empty() && !name.ends_with("-body")) throw MalformedReply("headers without an end");
    }
}

void ReplyParser::endHeaders() {
    _left = _headersSize;
    if (_left != 0) {
        _state = State::kEncapsulated;
    } else {
        _state = _hasBody ? State::kChunkSize : State::kComplete;
    }
}

void ReplyParser::takeChunkSize(std::string_view line) {
    _left = numberOf(cutAt(';', line), 16, "a chunk size");
    _state = _left != 0 ? State::kChunk : State::kTrailers;
    if (_left != 0) return;
    while (!line.empty()) {
        std::string_view extension = cutAt(';', line);
        if (sameName(cutAt('=', extension), "use-original-body")) takeOriginalBody(extension);
    }
}

void ReplyParser::takeBody(std::string_view bytes) {
    const std::uint64_t at = std::min<std::uint64_t>(_reply.bodyBytes, _sentBody.size());
    if (_sentBody.substr(static_cast<std::size_t>(at), bytes.size()) != bytes) _reply.bodyDiffers = true;
    _reply.bodyBytes += bytes.size();
}

void ReplyParser::takeOriginalBody(std::string_view offset) {
    const std::uint64_t from = numberOf(offset, 10, "an offset");
    if (_reply.status != 206 || from > _sentBody.size()) throw MalformedReply("it continues a body beyond its end");
    takeBody(_sentBody.substr(static_cast<std::size_t>(from)));
}

void ReplyParser::endBody() {
    if (_reply.bodyBytes != _sentBody.size()) _reply.bodyDiffers = true;
    _state = State::kComplete;
}
