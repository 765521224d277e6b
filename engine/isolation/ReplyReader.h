// ReplyReader: the scanner's half of what a worker tells of contents. A worker may have been taken over by what it
// scanned, so whatever it says is checked: sizes and numbers against what there is, codes against those that exist,
// texts for what texts have in them. What a set or a host decides, which names are false alarms and what the outcome
// is, is not taken from it.
//   Owns:    the bytes that were not read yet, kMostBytes of them at most, and names of as many.
//   Throws:  Nonsense, after which nothing more can be read; std::bad_alloc.
//   Threads: one.
#ifndef ENGINE_ISOLATION_REPLYREADER_H
#define ENGINE_ISOLATION_REPLYREADER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "FalseAlarms.h"
#include "Result.h"
#include "Wire.h"
#include "vole.h"

namespace isolation {

struct Nonsense {};

// What a worker tells a host. `event` refers to the rest, and its content, if it has one, is to be completed.
struct ToldEvent {
    vole_event event{};
    vole_content content{};
    vole_finding finding{};
    vole_reason reason{};
    std::string text;
    std::vector<std::string> names;
    std::vector<vole_bytes> components;
};

class ReplyReader {
public:
    static constexpr std::size_t kMostBytes = std::size_t{256} << 20;

    // `falseAlarms` is borrowed.
    explicit ReplyReader(const FalseAlarms& falseAlarms) : _falseAlarms(falseAlarms) {}

    // From now on nothing lies deeper in archives than so many levels; at first, nothing lies in any.
    void expect(std::uint32_t deepest) { _deepest = deepest; }

    // What came next.
    void append(std::span<const std::byte> bytes);
    // Whatever was appended or read before is forgotten.
    void clear();

    enum class Next { nothing, result, event, bytes, text };
    // The next whole frame that is a matter of its own, which has to be `wanted`; nothing when more has to come first.
    // Findings and reasons go to `result`, which they are all in once Next::result is answered, and which is empty
    // before the first. What an earlier call has read stays as it is unless the same is wanted again: the host may be
    // looking at an event while bytes are.
    Next next(Next wanted, vole_result& result);
    // Something is left of what was appended.
    bool hasMore() const { return _position < _unread.size(); }

    // After Next::result.
    vole_error error() const { return _error; }
    // After Next::event, until the next one is wanted.
    ToldEvent& event() { return _event; }
    // After Next::bytes and Next::text, until more is appended.
    std::span<const std::byte> bytes() const { return _bytes; }

private:
    class Frame;

    void readName(Frame frame);
    void readFinding(Frame frame, vole_result& result);
    void readReason(Frame frame, vole_result& result);
    void readResult(Frame frame, vole_result& result);
    void readEvent(Frame frame);
    const std::shared_ptr<const ContentName>& nameOf(std::uint32_t number) const;
    void forgetNames();

    struct Name {
        std::shared_ptr<const ContentName> name;
        std::uint32_t level;
    };

    const FalseAlarms& _falseAlarms;
    std::uint32_t _deepest = 0;
    std::vector<std::byte> _unread;
    std::size_t _position = 0;  // In what was appended.
    std::vector<Name> _names;   // Of the content whose result has not come yet.
    std::size_t _nameBytes = 0;
    vole_error _error = VOLE_OK;
    ToldEvent _event;
    std::span<const std::byte> _bytes;
};

}  // namespace isolation

#endif  // ENGINE_ISOLATION_REPLYREADER_H
