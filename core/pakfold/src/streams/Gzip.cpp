// gzip files (RFC 1952), by zlib. Heads and trailers are read here: a member whose check-sum is wrong does not keep
// what follows it from being decoded, and the name is in the first one's head.
#include <zlib.h>

#include <algorithm>

#include "ByteOrder.h"
#include "Raise.h"
#include "streams/StreamDecoder.h"
#include "streams/StreamTroubles.h"
#include "streams/StreamUnarchiver.h"
#include "utils/Crc.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"Gzip"};

enum HeadFlag : unsigned { kHasHeadSum = 2, kHasExtra = 4, kHasName = 8, kHasComment = 16, kReserved = 0xE0 };

struct Head {
    std::int64_t end;
    std::string name;
};

// The bytes before the next byte 0, of which `kept` gets as many as may be kept. Returns the position behind that byte,
// or the end of all.
std::int64_t passText(ContentBytes& bytes, std::int64_t position, std::string& kept) {
    constexpr std::size_t kPiece = 65536, kLongest = 4096;
    while (true) {
        const std::span<const char> piece = bytes.at(position, kPiece);
        if (piece.empty()) return position;
        const auto zero = std::find(piece.begin(), piece.end(), '\0');
        const auto length = static_cast<std::size_t>(zero - piece.begin());
        kept.append(piece.data(), std::min(length, kLongest - kept.size()));
        position += static_cast<std::int64_t>(length);
        if (zero != piece.end()) return position + 1;
    }
}

// A head that is cut ends behind the content.
Head readHead(ContentBytes& bytes, std::int64_t position) {
    constexpr std::size_t kFixedBytes = 10;
    const std::span<const char> fixed = bytes.at(position, kFixedBytes);
    if (fixed.size() < kFixedBytes) return {bytes.size() + 1, {}};
    const unsigned flags = static_cast<unsigned char>(fixed[3]);
    Head head{position + static_cast<std::int64_t>(kFixedBytes), {}};
    if (flags & kHasExtra) {
        const std::span<const char> size = bytes.at(head.end, 2);
        head.end += 2 + (size.size() == 2 ? loadU16(size.data()) : 0);
    }
    std::string unused;
    if (flags & kHasName) head.end = passText(bytes, head.end, head.name);
    if (flags & kHasComment) head.end = passText(bytes, head.end, unused);
    if (flags & kHasHeadSum) head.end += 2;
    return head;
}

class GzipDecoder : public StreamDecoder {
public:
    static constexpr const char* kName = "gzip";

    GzipDecoder() {
        if (::inflateInit2(&_state, -MAX_WBITS) != Z_OK) raiseOutOfMemory();
    }
    ~GzipDecoder() override { ::inflateEnd(&_state); }

    Step step(std::span<const char>& input, std::span<char>& space) override {
        _state.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(input.data()));  // Which is only read.
        _state.avail_in = static_cast<uInt>(input.size());
        _state.next_out = reinterpret_cast<Bytef*>(space.data());
        _state.avail_out = static_cast<uInt>(space.size());
        const int result = ::inflate(&_state, Z_NO_FLUSH);
        const std::size_t made = space.size() - _state.avail_out;
        _sum.add(space.data(), static_cast<unsigned>(made));
        _size += static_cast<std::uint32_t>(made);
        input = input.last(_state.avail_in);
        space = space.last(_state.avail_out);
        if (result == Z_MEM_ERROR) raiseOutOfMemory();
        if (result != Z_OK && result != Z_BUF_ERROR && result != Z_STREAM_END) return failed("zlib", result);
        return {result == Z_STREAM_END, {}};
    }

    const char* method() const override { return "deflate"; }
    bool isAt(ContentBytes& bytes, std::int64_t position) const override {
        constexpr unsigned char kMark[] = {0x1F, 0x8B, Z_DEFLATED};
        const std::span<const char> head = bytes.at(position, 4);
        return head.size() == 4 &&
               std::equal(std::begin(kMark), std::end(kMark), head.begin(),
                          [](unsigned char a, char b) { return a == static_cast<unsigned char>(b); }) &&
               (static_cast<unsigned char>(head[3]) & kReserved) == 0;
    }
    std::int64_t begin(ContentBytes& bytes, std::int64_t position) override {
        const Head head = readHead(bytes, position);
        if (head.end > bytes.size()) raiseEnded();
        ::inflateReset(&_state);
        _sum.reset();
        _size = 0;
        return head.end;
    }
    End end(ContentBytes& bytes, std::int64_t position) override {
        constexpr std::size_t kTrailerBytes = 8;
        const std::span<const char> trailer = bytes.at(position, kTrailerBytes);
        if (trailer.size() < kTrailerBytes) raiseEnded();
        const bool isSound = loadU32(trailer.data()) == _sum.crc() && loadU32(trailer.data() + 4) == _size;
        return {position + static_cast<std::int64_t>(kTrailerBytes), isSound};
    }
    std::int64_t costOfBegin() const override { return 512; }  // Nothing is made anew.
    std::string contentName(ContentBytes& bytes) const override { return readHead(bytes, 0).name; }

private:
    [[noreturn]] static void raiseEnded() { kUnit.raise<CompressionException>(streamTroubles::kUnexpectedEnd); }

    z_stream _state{};
    Iso3309Crc _sum;
    std::uint32_t _size = 0;  // Of what came out, as the trailer has it.
};

[[maybe_unused]] const bool registered = registerStream<GzipDecoder>();

}  // namespace
}  // namespace ZOV_SPACE
