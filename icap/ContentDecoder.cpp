#include "ContentDecoder.h"

#include <brotli/decode.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <new>

#include "HttpText.h"
#include "VoleLibrary.h"

namespace icap {
namespace {

constexpr std::size_t kOutput = 64 * 1024;

// Takes what comes out, and says when that is enough.
class Sink {
public:
    Sink(std::size_t packed, const DecodeLimits& limits, BodyStore& store)
        : _packed(packed), _limits(limits), _store(store) {}

    std::optional<Reason> take(std::span<const char> bytes) {
        _store.write(bytes);
        if (_limits.bytes != 0 && _store.size() > _limits.bytes)
            return reasonFor(VOLE_REASON_TOTAL_LIMIT, "the decoded body is larger than the limit");
        // Divided, because a product could wrap.
        if (_limits.ratio != 0 && _store.size() / _limits.ratio > _packed)
            return reasonFor(VOLE_REASON_RATIO_LIMIT, "the body is packed too well");
        return _limits.interrupted ? _limits.interrupted() : std::nullopt;
    }

private:
    const std::size_t _packed;
    const DecodeLimits& _limits;
    BodyStore& _store;
};

const Reason& cutOff() {
    static const Reason reason = reasonFor(VOLE_REASON_TRUNCATED, "the encoded body ends early");
    return reason;
}

const Reason& damaged() {
    static const Reason reason = reasonFor(VOLE_REASON_DAMAGED, "the encoded body is damaged");
    return reason;
}

class Inflation {
public:
    explicit Inflation(int windowBits) {
        if (::inflateInit2(&_stream, windowBits) != Z_OK) throw std::bad_alloc();
    }
    Inflation(const Inflation&) = delete;
    Inflation& operator=(const Inflation&) = delete;
    ~Inflation() { ::inflateEnd(&_stream); }

    // Decodes one stream, and takes what belongs to it off the front of `packed`.
    std::optional<Reason> run(std::span<const char>& packed, Sink& sink) {
        std::array<char, kOutput> output;
        for (;;) {
            // zlib counts in 32 bits.
            const std::size_t fed = std::min<std::size_t>(packed.size(), std::numeric_limits<uInt>::max());
            _stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data()));
            _stream.avail_in = static_cast<uInt>(fed);
            _stream.next_out = reinterpret_cast<Bytef*>(output.data());
            _stream.avail_out = kOutput;
            const int status = ::inflate(&_stream, Z_NO_FLUSH);
            packed = packed.subspan(fed - _stream.avail_in);
            const std::size_t made = kOutput - _stream.avail_out;
            if (auto reason = sink.take(std::span<const char>(output).first(made))) return reason;
            if (status == Z_STREAM_END) return std::nullopt;
            if (status == Z_MEM_ERROR) throw std::bad_alloc();
            if (status != Z_OK && status != Z_BUF_ERROR) return damaged();
            if (packed.empty() && made == 0) return cutOff();
        }
    }

private:
    z_stream _stream{};
};

constexpr int kWindow = 15;
constexpr int kWithGzipHead = 16;

// One stream behind another is one content.
std::optional<Reason> gunzip(std::span<const char> packed, Sink& sink) {
    constexpr std::string_view kMark = "\x1F\x8B";
    do {
        if (auto reason = Inflation(kWindow + kWithGzipHead).run(packed, sink)) return reason;
    } while (std::string_view(packed.data(), packed.size()).starts_with(kMark));
    return packed.empty() ? std::nullopt : std::optional(damaged());
}

std::optional<Reason> inflateAny(std::span<const char> packed, Sink& sink) {
    constexpr int kDeflated = 8;
    constexpr int kCheck = 31;
    // The head of RFC 1950 is a multiple of 31 whose low bits name the method.
    const auto byteAt = [&](std::size_t i) { return static_cast<unsigned char>(packed[i]); };
    const bool hasHead =
        packed.size() >= 2 && (byteAt(0) & 0xF) == kDeflated && (byteAt(0) * 256 + byteAt(1)) % kCheck == 0;
    if (auto reason = Inflation(hasHead ? kWindow : -kWindow).run(packed, sink)) return reason;
    return packed.empty() ? std::nullopt : std::optional(damaged());
}

std::optional<Reason> unbrotli(std::span<const char> packed, Sink& sink) {
    struct Destroyer {
        void operator()(BrotliDecoderState* state) const { ::BrotliDecoderDestroyInstance(state); }
    };
    const std::unique_ptr<BrotliDecoderState, Destroyer> state(
        ::BrotliDecoderCreateInstance(nullptr, nullptr, nullptr));
    if (!state) throw std::bad_alloc();
    std::array<char, kOutput> output;
    std::size_t left = packed.size();
    const auto* next = reinterpret_cast<const std::uint8_t*>(packed.data());
    for (;;) {
        auto* out = reinterpret_cast<std::uint8_t*>(output.data());
        std::size_t room = kOutput;
        const BrotliDecoderResult result =
            ::BrotliDecoderDecompressStream(state.get(), &left, &next, &room, &out, nullptr);
        if (auto reason = sink.take(std::span<const char>(output).first(kOutput - room))) return reason;
        if (result == BROTLI_DECODER_RESULT_SUCCESS) return left == 0 ? std::nullopt : std::optional(damaged());
        if (result == BROTLI_DECODER_RESULT_ERROR) return damaged();
        if (result == BROTLI_DECODER_RESULT_NEEDS_MORE_INPUT) return cutOff();
    }
}

}  // namespace

std::vector<std::string> codingsOf(std::string_view header) {
    std::vector<std::string> codings;
    for (const std::string_view item : splitList(header, ',')) {
        std::string coding = lowerCase(item);
        if (!coding.empty() && coding != "identity") codings.push_back(std::move(coding));
    }
    std::ranges::reverse(codings);
    return codings;
}

std::optional<Reason> decodeContent(std::string_view coding, std::span<const char> packed, const DecodeLimits& limits,
                                    BodyStore& decoded) {
    Sink sink(packed.size(), limits, decoded);
    if (coding == "gzip" || coding == "x-gzip") return gunzip(packed, sink);
    if (coding == "deflate") return inflateAny(packed, sink);
    if (coding == "br") return unbrotli(packed, sink);
    return reasonFor(VOLE_REASON_UNSUPPORTED, "a content coding that is not undone: " + std::string(coding));
}

}  // namespace icap
