// zlib inflates (RFC 1951; RFC 1950 for the frame round it); what is done here is to carry bytes to it and from it.
//
// Input is taken a piece at a time, each behind a mark. zlib finds the end of the data itself, usually in the middle of
// a piece; if nobody else knows where it is, the stream is put back to the mark and moved to just behind what zlib
// used. Output goes straight into the memory of a stream that lends it, which spares a copy. Other streams, and every
// stream when a processor is to be asked, are written in pieces of one size.
//
// What is tried in one go comes first, and leaves everything as it was unless all of it is right. So nobody can tell it
// from streaming, but for the sizes in which lent memory is filled: where those matter, because an output or the budget
// would end within the data, it is not tried.
#include "zip/DeflateDecompressor.h"

#include <zlib.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <new>
#include <span>

#include "Raise.h"
#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"../../core/pakfold/src/unarchiver/Deflate"};

constexpr int kRawWindowBits = -15;  // Negative: without header and trailer.
// What zlib compares before it trusts our idea of its structure: the first digit, and the size passed beside it.
constexpr const char* kZlibVersion = "1.1.4";

constexpr const char* kErrorText = "inflate: error ";

[[noreturn]] void raiseZlib(int code, const char* text) {
    if (code == Z_MEM_ERROR) kUnit.raise<OutOfMemoryException>("Out of memory");
    if (code == Z_NEED_DICT) kUnit.raise<CompressionException>("inflate: need dictionary");
    kUnit.raise<CompressionException>(kErrorText + std::to_string(code) + ": " + (text ? text : ""));
}

class Inflater {
public:
    explicit Inflater(bool raw) {
        constexpr int kStateSize = static_cast<int>(sizeof(z_stream));
        const int result = raw ? ::inflateInit2_(&_state, kRawWindowBits, kZlibVersion, kStateSize)
                               : ::inflateInit_(&_state, kZlibVersion, kStateSize);
        if (result != Z_OK) raiseZlib(result, _state.msg);
    }
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;
    ~Inflater() { ::inflateEnd(&_state); }

    // The next input, borrowed until it is used up.
    void feed(std::span<const char> input) {
        // zlib reads through this pointer only, whatever its type says.
        _state.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(input.data()));
        _state.avail_in = static_cast<uInt>(input.size());
    }

    // Inflates into the space and returns how much of it was filled: all, or as much as the input gave.
    std::size_t inflate(std::span<char> space) {
        _state.next_out = reinterpret_cast<Bytef*>(space.data());
        _state.avail_out = static_cast<uInt>(space.size());
        _result = ::inflate(&_state, Z_NO_FLUSH);
        return space.size() - _state.avail_out;
    }

    bool ended() const { return _result == Z_STREAM_END; }
    bool failed() const { return !ended() && _result != Z_OK && _result != Z_BUF_ERROR; }
    int unusedInput() const { return static_cast<int>(_state.avail_in); }

    [[noreturn]] void raiseFailure() const { raiseZlib(_result, _state.msg); }
    [[noreturn]] static void raiseTooShort() { raiseZlib(Z_BUF_ERROR, nullptr); }

private:
    z_stream _state{};
    int _result = Z_OK;
};

// Where inflated bytes go: into the stream's own memory while it lends some, otherwise to it in pieces of one size.
class Sink {
public:
    // A processor is asked about pieces, so none is bypassed.
    Sink(OutputStream& out, DecompressProcessor* processor) : _out(out), _processor(processor), _lends(!processor) {}

    std::span<char> space() {
        if (_lends) {
            const std::span<char> lent = _out.lendSpace();
            if (!lent.empty()) return lent;
            _lends = false;
        }
        if (!_piece) _piece = std::make_unique_for_overwrite<char[]>(kPiece);
        return {_piece.get() + _filled, static_cast<std::size_t>(kPiece - _filled)};
    }

    // Takes `n` bytes of the space as filled. False when the processor wants no more.
    bool commit(std::size_t n) {
        if (_lends) {
            _out.commitSpace(static_cast<long>(n));
            return true;
        }
        _filled += static_cast<int>(n);
        return _filled < kPiece || flush();
    }

    bool flush() {
        if (_filled == 0) return true;
        if (_processor && _processor->getAction() == DecompressProcessor::kStop) return false;
        const int count = _filled;
        _filled = 0;
        _out.write(_piece.get(), count);
        return true;
    }

private:
    static constexpr int kPiece = DeflateDecompressor::kOutputPiece;

    OutputStream& _out;
    DecompressProcessor* _processor;
    bool _lends;
    std::unique_ptr<char[]> _piece;
    int _filled = 0;
};

using OwnBytes = std::unique_ptr<char[]>;

OwnBytes ownBytes(std::int64_t n) { return OwnBytes(new (std::nothrow) char[static_cast<std::size_t>(n)]); }

// Null when there is less, or it cannot be read: streaming shows what is wrong, after what comes before that.
OwnBytes readAll(InputStream& in, std::int64_t n) {
    OwnBytes bytes = ownBytes(n);
    int count = 1;
    try {
        for (std::int64_t at = 0; bytes && at < n; at += count) {
            count = in.read(bytes.get() + at, static_cast<int>(n - at));
            if (count < 1) return nullptr;
        }
    } catch (const IOException&) {
        return nullptr;
    }
    return bytes;
}

// Decodes data in one go into memory that the output lends, or that is handed to it afterwards as by a Sink.
class WholeTry {
public:
    WholeTry(OutputStream& out, const InflatedAs& announced) : _out(out), _announced(announced) {
        const auto size = static_cast<std::size_t>(announced.size);
        const std::span<char> lent = out.lendSpace();
        if (lent.size() >= size && out.takesAtOnce(announced.size)) {
            _space = lent.first(size);
        } else if (lent.empty() && announced.size <= kMostOwn) {
            _own = ownBytes(announced.size);
            if (_own) _space = {_own.get(), size};
        }
    }

    // Returns how many bytes the data takes; 0 when it is not what is announced.
    std::int64_t take(InputStream& in, std::int64_t packedSize) {
        if (_space.empty()) return 0;
        in.mark(static_cast<int>(packedSize));
        OwnBytes packed = readAll(in, packedSize);
        const std::span<const char> bytes(packed.get(), packed ? static_cast<std::size_t>(packedSize) : 0);
        const std::size_t used = packed ? inflateWhole(bytes, _space, _announced.checkSum) : 0;
        if (used == 0) in.reset();
        return static_cast<std::int64_t>(used);
    }

    void commit() {
        if (!_own) return _out.commitSummed(static_cast<long>(_space.size()), _announced.checkSum);
        for (std::size_t at = 0; at < _space.size(); at += DeflateDecompressor::kOutputPiece) {
            const std::size_t count = std::min<std::size_t>(_space.size() - at, DeflateDecompressor::kOutputPiece);
            _out.write(_space.data() + at, static_cast<int>(count));
        }
    }

private:
    static constexpr std::int64_t kMostOwn = std::int64_t{8} << 20;  // Bytes.

    OutputStream& _out;
    const InflatedAs& _announced;
    OwnBytes _own;
    std::span<char> _space;  // Empty: it cannot be tried.
};

enum class Fed { kGoesOn, kStopped, kFailed };

// Inflates the input that was fed, until zlib wants more, has reached the end or fails, or the processor stops it.
Fed inflateFed(Inflater& inflater, Sink& sink) {
    while (true) {
        const std::span<char> space = sink.space();
        const std::size_t count = inflater.inflate(space);
        if (!sink.commit(count)) return Fed::kStopped;
        if (inflater.failed()) return sink.flush() ? Fed::kFailed : Fed::kStopped;
        if (inflater.ended() || count < space.size()) return Fed::kGoesOn;
    }
}

}  // namespace

DeflateDecompressor::~DeflateDecompressor() = default;

std::int64_t DeflateDecompressor::decompress(InputStream& in, std::int64_t compressedSize, OutputStream& out,
                                             const InflatedAs& announced) {
    if (!in.markSupported()) kUnit.raise<CompressionException>("mark() not supported by input stream");
    const std::int64_t used = decompressWhole(in, compressedSize, out, announced);
    return used > 0 ? compressedSize - used : stream(in, compressedSize, out);
}

std::int64_t DeflateDecompressor::decompressWhole(InputStream& in, std::int64_t compressedSize, OutputStream& out,
                                                  const InflatedAs& announced) {
    const std::int64_t cost = compressedSize + announced.size;
    if (!_raw || _processor || !announced.isTried(compressedSize) || !ScanBudget::takeTrialBytes(cost)) return 0;
    WholeTry whole(out, announced);
    const std::int64_t used = whole.take(in, compressedSize);
    if (used == 0) return 0;
    ScanBudget::returnTrialBytes(cost);
    whole.commit();
    return used;
}

std::int64_t DeflateDecompressor::stream(InputStream& in, std::int64_t compressedSize, OutputStream& out) {
    Inflater inflater(_raw);
    Sink sink(out, _processor);
    const auto input = std::make_unique_for_overwrite<char[]>(kInputPiece);
    const bool sizeKnown = compressedSize != kUnknownSize;
    std::int64_t left = sizeKnown ? compressedSize : std::numeric_limits<std::int64_t>::max();
    while (!inflater.ended()) {
        in.mark(kInputPiece);
        const int count =
            left > 0 ? in.read(input.get(), static_cast<int>(std::min<std::int64_t>(left, kInputPiece))) : 0;
        if (count < 1) {
            if (sink.flush()) Inflater::raiseTooShort();
            return 0;
        }
        left -= count;
        inflater.feed({input.get(), static_cast<std::size_t>(count)});
        const Fed result = inflateFed(inflater, sink);
        if (!sizeKnown && inflater.unusedInput() > 0) {
            in.reset();
            in.skip(count - inflater.unusedInput());
        }
        if (result == Fed::kFailed) inflater.raiseFailure();
        if (result == Fed::kStopped) return 0;
    }
    return sink.flush() && sizeKnown ? left + inflater.unusedInput() : 0;
}

bool DeflateDecompressor::saysTooShort(const std::string& message) {
    return message.starts_with(kErrorText + std::to_string(Z_BUF_ERROR) + ":");
}

int DeflateDecompressor::getAlgorithm() const { return kAlgorithmDeflate; }

std::string DeflateDecompressor::getAlgorithmName() const { return "inflate"; }

const char* DeflateDecompressor::version() { return ::zlibVersion(); }

}  // namespace ZOV_SPACE
