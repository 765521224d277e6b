// Zstandard, by libzstd: files, and methods 93 and, in older archives, 20 of ZIP archives.
#include <zstd.h>
#include <zstd_errors.h>

#include <algorithm>
#include <memory>

#include "ByteOrder.h"
#include "streams/StreamDecoder.h"
#include "streams/StreamTroubles.h"
#include "streams/StreamUnarchiver.h"
#include "unarchiver/Pakfold.h"
#include "zip/deep/ZipMethods.h"

namespace ZOV_SPACE {
namespace {

constexpr unsigned kZipMethod = 93, kOldZipMethod = 20;
constexpr int kLargestWindow = 27;  // As a power of two, in bytes.

struct Free {
    void operator()(ZSTD_DCtx* state) const { ::ZSTD_freeDCtx(state); }
};

class ZstdDecoder : public StreamDecoder {
public:
    static constexpr const char* kName = "zstd";

    ZstdDecoder() : _state(::ZSTD_createDCtx()) {
        if (!_state) raiseOutOfMemory();
        ::ZSTD_DCtx_setParameter(_state.get(), ZSTD_d_windowLogMax, kLargestWindow);
    }

    Step step(std::span<const char>& input, std::span<char>& space) override {
        // No more than the block at hand: what came out of the blocks before a broken one is lost when they are decoded
        // in one call with that. The library asks for the next block's head, too.
        ZSTD_inBuffer in{input.data(), std::min(input.size(), _wanted), 0};
        ZSTD_outBuffer out{space.data(), space.size(), 0};
        const std::size_t result = ::ZSTD_decompressStream(_state.get(), &out, &in);
        input = input.subspan(in.pos);
        space = space.subspan(out.pos);
        if (::ZSTD_isError(result)) return failureOf(::ZSTD_getErrorCode(result));
        _wanted = result == 0 ? kFirstBytes : result > kBlockHead ? result - kBlockHead : result;
        return {result == 0, {}};
    }

    const char* method() const override { return "zstd"; }

    // Frames that are to be skipped count: they stand between others, and in front.
    bool isAt(ContentBytes& bytes, std::int64_t position) const override {
        constexpr std::uint32_t kSkipped = 0x184D2A50;
        const std::uint32_t mark = bytes.signatureAt(position);
        return mark == ZSTD_MAGICNUMBER || (mark & 0xFFFFFFF0) == kSkipped;
    }
    std::int64_t begin(ContentBytes&, std::int64_t position) override { return position; }

private:
    static constexpr std::size_t kFirstBytes = 5;  // Of a frame, to know how long its head is.
    static constexpr std::size_t kBlockHead = 3;

    static Step failureOf(ZSTD_ErrorCode code) {
        if (code == ZSTD_error_memory_allocation) raiseOutOfMemory();
        if (code == ZSTD_error_frameParameter_windowTooLarge) return {false, streamTroubles::kTooMuchMemory};
        if (code == ZSTD_error_checksum_wrong) return {false, streamTroubles::kWrongSum};
        return failed(kName, code);
    }

    std::unique_ptr<ZSTD_DCtx, Free> _state;
    std::size_t _wanted = kFirstBytes;
};

std::int64_t decode(InputStream& in, const ZipPacked& packed, OutputStream& out) {
    ZstdDecoder decoder;
    return decodeAll(decoder, in, packed.packedSize, out);
}

[[maybe_unused]] const bool registered = registerZipMethod({kZipMethod, kAlgorithmOther, true, decode}) &&
                                         registerZipMethod({kOldZipMethod, kAlgorithmOther, true, decode}) &&
                                         registerStream<ZstdDecoder>();

}  // namespace
}  // namespace ZOV_SPACE
