#include "rar/RarDecompressSession.h"

#include <algorithm>
#include <limits>
#include <string>
#include <utility>

#include "EntryStreams.h"
#include "Raise.h"

namespace ZOV_SPACE {

static constexpr ThrowUnit kUnit{"../../core/pakfold/src/unarchiver/RarCompressor"};

void RarDecompressSession::decompress(InputStream& in, std::int64_t packedSize, OutputStream& out,
                                      std::int64_t unpackedSize, int unpackVersion, int solid) {
    _isFresh = solid == 0 || !_out;
    _asked = solid == 0 ? _processor : nullptr;
    _target = &out;
    _outcome = {};
    switch (unpackVersion) {
        case 20:
        case 26:
            _filtered = nullptr;
            setStreams<RarBufferOutputStream>(in, packedSize, out, unpackedSize);
            break;
        case 29:
            _filtered = setStreams<RarVMOutputStream>(in, packedSize, out, unpackedSize);
            break;
        default:
            kUnit.raise<CompressionException>("Unsupported RAR unpack version:" + std::to_string(unpackVersion));
    }
    try {
        _filtered ? unpack29(in) : unpack20(in);
    } catch (const Exception&) {
        settleOutcome(unpackedSize);
        throw;
    }
    settleOutcome(unpackedSize);
}

// Whoever does not take the output, or stops it, knows what is missing.
void RarDecompressSession::settleOutcome(std::int64_t unpackedSize) {
    if (!_out->outputFailed() && !isStopped()) _outcome.missingBytes = unpackedSize - _out->flushedTotal();
    if (_filtered) _outcome.troubles = _filtered->troubles();
}

// A fresh entry gets the window, too, once there is one, since clearing what was written in it costs less than a new
// one.
template <class Stream>
Stream* RarDecompressSession::setStreams(InputStream& in, std::int64_t packedSize, OutputStream& out,
                                         std::int64_t unpackedSize) {
    _in.reset();
    _in = std::make_unique<RarBitInputStream>(&in, packedSize);
    std::unique_ptr<Stream> stream;
    if (_out && _isFresh) {
        RarWindow window = _out->releaseWindow();
        _out.reset();
        window.clear();
        stream = std::make_unique<Stream>(&out, std::move(window), unpackedSize);
    } else {
        stream = std::make_unique<Stream>(&out, kWindowBytes, unpackedSize, _out.get());
    }
    if (_isFresh) reset();
    Stream* const result = stream.get();
    _out = std::move(stream);
    return result;  // cppcheck-suppress returnDanglingLifetime ; _out owns it now
}

void RarDecompressSession::reset() {
    _history = RarHistory();
    _rar20.reset();
    _rar29.reset();
    _tablesRead = false;
    _mode = BlockMode::kLz;
    _escapeChar = kDefaultEscape;
    _programs.InitFilters();
}

void RarDecompressSession::skipUntaken(InputStream& in) const {
    constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
    for (std::int64_t left = _in->untaken(); left > 0;) {
        const auto skipped = in.skip(static_cast<long>(std::min(left, kMost)));
        if (skipped <= 0) break;
        left -= skipped;
    }
}

// What was decoded before the data ended too early, or made no sense, is written before the exception goes on.
RarDecompressSession::End RarDecompressSession::decode(End (RarDecompressSession::*method)()) {
    try {
        return (this->*method)();
    } catch (const Exception&) {
        try {
            if (!_out->outputFailed()) _out->finishOutput();
        } catch (const Exception&) {
            // The target has what it takes, and the first failure says more.
        }
        throw;
    }
}

void RarDecompressSession::unpack20(InputStream& in) {
    const End end = decode(&RarDecompressSession::decode20);
    if (end == End::kStopRule) _rar20.ReadLastTables(*_in);
    skipUntaken(in);
    if (end != End::kProcessor) _out->finishOutput();
}

RarDecompressSession::End RarDecompressSession::decode20() {
    if (_isFresh && !_rar20.ReadTables20(*_in)) return End::kData;
    for (;;) {
        if (!_asked && !_rar20.run(*_in, *_out)) return End::kData;
        if (_in->atEnd() || _out->limitReached()) return End::kStopRule;
        if (isStopped()) return End::kProcessor;
        if (!_rar20.step(*_in, *_out)) return End::kData;
    }
}

}  // namespace ZOV_SPACE
