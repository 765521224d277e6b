// ReplyParser.h: reads ICAP replies as their bytes come in.
#ifndef BENCH_ICAP_REPLY_PARSER_H
#define BENCH_ICAP_REPLY_PARSER_H

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

// What a server sent is no ICAP reply.
class MalformedReply : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Reply {
    int status = 0;
    bool found = false;        // It names an infection.
    bool closes = false;       // The server takes no further request on this connection.
    bool bodyDiffers = false;  // Its body is not the one that was sent.
    std::uint64_t bodyBytes = 0;
    std::string isTag;
};

// One reply at a time. Keeps its headers no longer than it needs them, and compares the body instead of keeping it.
// For one thread. All but the constructor throw MalformedReply.
class ReplyParser {
public:
    // Forgets the reply at hand. `sentBody` is what its body is compared with, and has to outlive the next reply.
    void expect(std::string_view sentBody);

    // Takes bytes up to the end of the reply at most, and returns how many.
    std::size_t feed(std::string_view bytes);

    bool complete() const { return _state == State::kComplete; }
    const Reply& reply() const { return _reply; }

private:
    enum class State { kStatusLine, kHeaders, kEncapsulated, kChunkSize, kChunk, kChunkEnd, kTrailers, kComplete };

    void step(std::string_view& bytes);
    void takeLine(std::string_view line);
    void takeStatus(std::string_view line);
    void takeHeader(std::string_view line);
    void takeEncapsulated(std::string_view value);
    void endHeaders();
    void takeChunkSize(std::string_view line);
    void takeBody(std::string_view bytes);
    void takeOriginalBody(std::string_view offset);
    void endBody();

    State _state = State::kStatusLine;
    std::string _line;               // The start of a line whose end has not come yet.
    std::uint64_t _left = 0;         // Bytes until the end of the HTTP headers or of the chunk.
    std::uint64_t _headersSize = 0;  // Of the encapsulated message.
    std::uint64_t _headerBytes = 0;  // Of the reply itself.
    bool _hasBody = false;
    std::string_view _sentBody;
    Reply _reply;
};

#endif  // BENCH_ICAP_REPLY_PARSER_H
