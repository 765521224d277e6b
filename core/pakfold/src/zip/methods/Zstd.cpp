// Methods 93 and, in older archives, 20, by libzstd.
#include <zstd.h>
#include <zstd_errors.h>

#include <memory>

#include "unarchiver/Pakfold.h"
#include "zip/deep/ZipMethods.h"
#include "zip/methods/Streaming.h"

namespace ZOV_SPACE {
namespace {

constexpr unsigned kNumber = 93, kOldNumber = 20;
constexpr int kLargestWindow = 27;  // As a power of two, in bytes.

struct Free {
    void operator()(ZSTD_DCtx* state) const { ::ZSTD_freeDCtx(state); }
};

bool step(ZSTD_DCtx& state, std::span<const char>& input, std::span<char>& space) {
    ZSTD_inBuffer in{input.data(), input.size(), 0};
    ZSTD_outBuffer out{space.data(), space.size(), 0};
    const std::size_t result = ::ZSTD_decompressStream(&state, &out, &in);
    if (::ZSTD_isError(result)) {
        const ZSTD_ErrorCode code = ::ZSTD_getErrorCode(result);
        if (code == ZSTD_error_frameParameter_windowTooLarge) methods::raiseTooLarge();
        methods::raiseDamaged("zstd", code);
    }
    input = input.subspan(in.pos);
    space = space.subspan(out.pos);
    return result == 0;
}

std::int64_t decode(InputStream& in, const ZipPacked& packed, OutputStream& out) {
    const std::unique_ptr<ZSTD_DCtx, Free> state(::ZSTD_createDCtx());
    if (!state) kZipUnit.raise<OutOfMemoryException>("Out of memory");
    ::ZSTD_DCtx_setParameter(state.get(), ZSTD_d_windowLogMax, kLargestWindow);
    return methods::pump(in, packed.packedSize, out,
                         [&](auto& input, auto& space) { return step(*state, input, space); });
}

[[maybe_unused]] const bool registered = registerZipMethod({kNumber, kAlgorithmOther, true, decode}) &&
                                         registerZipMethod({kOldNumber, kAlgorithmOther, true, decode});

}  // namespace
}  // namespace ZOV_SPACE
