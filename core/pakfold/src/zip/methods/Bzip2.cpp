// Method 12, by libbz2. Its memory is a few MiB, whatever the data says.
#include <bzlib.h>

#include "unarchiver/Pakfold.h"
#include "zip/deep/ZipMethods.h"
#include "zip/methods/Streaming.h"

namespace ZOV_SPACE {
namespace {

constexpr unsigned kNumber = 12;

class Decoder {
public:
    Decoder() {
        if (::BZ2_bzDecompressInit(&_state, 0, 0) != BZ_OK) kZipUnit.raise<OutOfMemoryException>("Out of memory");
    }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;
    ~Decoder() { ::BZ2_bzDecompressEnd(&_state); }

    bool step(std::span<const char>& input, std::span<char>& space) {
        _state.next_in = const_cast<char*>(input.data());  // Which is only read.
        _state.avail_in = static_cast<unsigned>(input.size());
        _state.next_out = space.data();
        _state.avail_out = static_cast<unsigned>(space.size());
        const int result = ::BZ2_bzDecompress(&_state);
        if (result == BZ_MEM_ERROR) kZipUnit.raise<OutOfMemoryException>("Out of memory");
        if (result != BZ_OK && result != BZ_STREAM_END) methods::raiseDamaged("bzip2", result);
        input = input.last(_state.avail_in);
        space = space.last(_state.avail_out);
        return result == BZ_STREAM_END;
    }

private:
    bz_stream _state{};
};

std::int64_t decode(InputStream& in, const ZipPacked& packed, OutputStream& out) {
    Decoder decoder;
    return methods::pump(in, packed.packedSize, out,
                         [&](auto& input, auto& space) { return decoder.step(input, space); });
}

[[maybe_unused]] const bool registered = registerZipMethod({kNumber, kAlgorithmOther, true, decode});

}  // namespace
}  // namespace ZOV_SPACE
