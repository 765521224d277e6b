// StreamDecoder: what one compression library decodes, a piece at a time; for members of ZIP archives and for files
// that are nothing but compressed data. Each format of such a file is a StreamDecoder.
//
// A decoder owns its library's state, whose size is bounded whatever the data says. Used by one thread.
#ifndef PAKFOLD_STREAMS_STREAMDECODER_H
#define PAKFOLD_STREAMS_STREAMDECODER_H

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "ContentBytes.h"
#include "io/InputStream.h"
#include "io/OutputStream.h"

namespace ZOV_SPACE {

// What data may have a library allocate, in bytes; most of it is the window that the data asks for.
inline constexpr std::uint64_t kMostDecoderMemory = std::uint64_t{160} << 20;

class StreamDecoder {
public:
    struct Step {
        bool isLast = false;  // The data is at its end.
        std::string failure;  // Why no other step can follow; empty if one can.
    };
    struct End {
        std::int64_t position;  // Behind the stream.
        bool isSound = true;    // What came out has the check-sum that follows it.
    };

    StreamDecoder() = default;
    StreamDecoder(const StreamDecoder&) = delete;
    StreamDecoder& operator=(const StreamDecoder&) = delete;
    virtual ~StreamDecoder() = default;

    // Decodes from the one into the other, and moves both behind what it used, also when it fails.
    virtual Step step(std::span<const char>& input, std::span<char>& space) = 0;

    // As ArchiveEntryInfo has it.
    virtual const char* method() const = 0;

    // The rest is for files. One holds any number of streams, whose contents are one.
    // Whether a stream begins there.
    virtual bool isAt(ContentBytes& bytes, std::int64_t position) const = 0;
    // Gets ready for it. Returns where the bytes begin that step() is to be given.
    virtual std::int64_t begin(ContentBytes& bytes, std::int64_t position) = 0;
    // `position`: behind the last byte that step() used.
    virtual End end(ContentBytes&, std::int64_t position) { return {position}; }
    // What getting ready costs, as so many bytes that are decoded.
    virtual std::int64_t costOfBegin() const { return 4096; }
    // What the file says that its content is called; empty if nothing.
    virtual std::string contentName(ContentBytes&) const { return {}; }

protected:
    static Step failed(const char* library, int code);
    [[noreturn]] static void raiseOutOfMemory();
};

// Where decoded bytes go: into the output's own memory while it lends some, else to it in pieces.
class DecodedOutput {
public:
    explicit DecodedOutput(OutputStream& out) : _out(out) {}

    // Takes one step. False at the end of the data. Throws CompressionException when it fails or nothing moves, and
    // what the output throws; what came out before has been written.
    bool take(StreamDecoder& decoder, std::span<const char>& input);
    std::int64_t made() const { return _made; }  // Bytes so far.

private:
    std::span<char> space();
    void commit(std::size_t count);

    OutputStream& _out;
    std::unique_ptr<char[]> _piece;  // Null while the output lends memory.
    std::int64_t _made = 0;
};

// Decodes one stream from at most `packedSize` bytes, and returns how many of them are left behind it.
std::int64_t decodeAll(StreamDecoder& decoder, InputStream& in, std::int64_t packedSize, OutputStream& out);

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_STREAMS_STREAMDECODER_H
