// A line is sent in two steps: first its position is stored, which hosts can see even of lines that they do not want,
// then the text is formatted and handed over.
//
// Work done ahead of its turn puts a listener of its own in between (Hold), which keeps the lines for later.
#include "util/Diag.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <utility>

#include "util/WorkScope.h"

namespace diag {
namespace {

using ZOV_SPACE::WorkScope;

// What stands ahead of each message that is held back.
struct HeldHeader {
    Position position;
    std::uint16_t length;  // Bytes of the message.
    Kind kind;
};
static_assert(kMessageSize <= UINT16_MAX);

__attribute__((format(printf, 3, 0))) void format(Listener& listener, Kind kind, const char* text,
                                                  std::va_list arguments) {
    if (!listener.wants(kind)) return;
    char message[kMessageSize];
    if (std::vsnprintf(message, kMessageSize, text, arguments) < 0) message[0] = '\0';
    listener.deliver(kind, listener.position(), message);
}

}  // namespace

ListenerScope::ListenerScope(Listener& listener) : _outer(std::exchange(WorkScope::ofThread().listener, &listener)) {}

ListenerScope::~ListenerScope() { WorkScope::ofThread().listener = _outer; }

void print(Kind kind, const char* text, std::va_list arguments) {
    if (Listener* const listener = WorkScope::ofThread().listener) format(*listener, kind, text, arguments);
}

void storePosition(const char* unit, int line) {
    if (Listener* const listener = WorkScope::ofThread().listener) listener->storePosition({unit, line});
}

std::string dumpDirectory() {
    const Listener* const listener = WorkScope::ofThread().listener;
    return listener ? listener->dumpDirectory() : std::string();
}

void Site::send(Kind kind, const char* text, std::va_list arguments) const {
    Listener* const listener = WorkScope::ofThread().listener;
    if (!listener) return;
    listener->storePosition(_position);
    format(*listener, kind, text, arguments);
}

void Site::dbg(const char* text, ...) const {
    std::va_list arguments;
    va_start(arguments, text);
    send(Kind::debug, text, arguments);
    va_end(arguments);
}

void Site::err(const char* text, ...) const {
    std::va_list arguments;
    va_start(arguments, text);
    send(Kind::error, text, arguments);
    va_end(arguments);
}

void Site::info(const char* text, ...) const {
    std::va_list arguments;
    va_start(arguments, text);
    send(Kind::info, text, arguments);
    va_end(arguments);
}

void HeldLines::add(Kind kind, Position position, std::string_view message) {
    const HeldHeader header{position, static_cast<std::uint16_t>(message.size()), kind};
    _bytes.append(reinterpret_cast<const char*>(&header), sizeof header).append(message);
}

void HeldLines::deliver() const {
    Listener* const listener = WorkScope::ofThread().listener;
    if (!listener) return;
    HeldHeader header;
    for (std::size_t at = 0; at < _bytes.size(); at += header.length) {
        std::memcpy(&header, _bytes.data() + at, sizeof header);
        at += sizeof header;
        listener->storePosition(header.position);
        if (!listener->wants(header.kind)) continue;
        char message[kMessageSize];
        message[_bytes.copy(message, header.length, at)] = '\0';
        listener->deliver(header.kind, header.position, {message, header.length});
    }
}

Listener* Hold::current() { return WorkScope::ofThread().listener; }

HeldLines Hold::take() {
    _keeper.lines.shrinkToFit();
    return std::exchange(_keeper.lines, {});
}

void Hold::Keeper::storePosition(Position position) {
    if (_inner) _inner->storePosition(position);
}

Position Hold::Keeper::position() const { return _inner ? _inner->position() : Position{"", 0}; }

bool Hold::Keeper::wants(Kind kind) const { return _inner && _inner->wants(kind); }

void Hold::Keeper::deliver(Kind kind, Position position, std::string_view message) {
    lines.add(kind, position, message);
}

std::string Hold::Keeper::dumpDirectory() const { return _inner ? _inner->dumpDirectory() : std::string(); }

}  // namespace diag
