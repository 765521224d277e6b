// ReplyWriter: the worker's half of what is told of contents: frames in the outbox.
//   Borrows: the outbox.
//   Threads: one.
#ifndef ENGINE_ISOLATION_REPLYWRITER_H
#define ENGINE_ISOLATION_REPLYWRITER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "Result.h"
#include "Wire.h"
#include "vole.h"

namespace isolation {

class ReplyWriter {
public:
    // `onFull` comes back once the scanner has read all; anything may be thrown from it.
    ReplyWriter(Outbox& outbox, std::function<void()> onFull) : _outbox(outbox), _onFull(std::move(onFull)) {}

    void result(vole_error error, const vole_result& result);
    void event(const vole_event& event);
    void bytes(std::span<const std::byte> bytes);
    void text(std::string_view text);

private:
    std::uint32_t numberOf(const ContentName& name);
    void head(FrameKind kind, std::size_t size);
    void put(std::span<const std::byte> bytes);
    void put(std::string_view text) { put(std::as_bytes(std::span(text))); }
    template <class Frame>
    void frame(FrameKind kind, const Frame& frame, std::string_view text) {
        head(kind, sizeof frame + text.size());
        put(std::as_bytes(std::span(&frame, 1)));
        put(text);
    }

    Outbox& _outbox;
    std::function<void()> _onFull;
    std::unordered_map<const ContentName*, std::uint32_t> _numbers;
};

}  // namespace isolation

#endif  // ENGINE_ISOLATION_REPLYWRITER_H
