// Methods 14 (LZMA) and 95 (XZ), by liblzma. LZMA data has a head of its own in ZIP archives: a version and a length of
// two bytes each, then the properties. With the unpacked size behind these it is the older file format of LZMA.
#include <lzma.h>

#include <array>
#include <limits>

#include "ByteOrder.h"
#include "IOUtils.h"
#include "unarchiver/Pakfold.h"
#include "zip/deep/ZipMethods.h"
#include "zip/methods/Streaming.h"

namespace ZOV_SPACE {
namespace {

constexpr unsigned kLzma = 14, kXz = 95;
constexpr int kHeadBytes = 4, kPropertiesBytes = 5, kFileHeadBytes = kPropertiesBytes + 8;

class Decoder {
public:
    explicit Decoder(unsigned method) {
        check(method == kXz ? ::lzma_stream_decoder(&_state, methods::kMostMemory, 0)
                            : ::lzma_alone_decoder(&_state, methods::kMostMemory));
    }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;
    ~Decoder() { ::lzma_end(&_state); }

    bool step(std::span<const char>& input, std::span<char>& space) {
        _state.next_in = reinterpret_cast<const std::uint8_t*>(input.data());
        _state.avail_in = input.size();
        _state.next_out = reinterpret_cast<std::uint8_t*>(space.data());
        _state.avail_out = space.size();
        const lzma_ret result = ::lzma_code(&_state, LZMA_RUN);
        if (result != LZMA_BUF_ERROR) check(result);  // That one is for the caller to see: nothing moved.
        input = input.last(_state.avail_in);
        space = space.last(_state.avail_out);
        return result == LZMA_STREAM_END;
    }

private:
    static void check(lzma_ret result) {
        if (result == LZMA_OK || result == LZMA_STREAM_END) return;
        if (result == LZMA_MEM_ERROR) kZipUnit.raise<OutOfMemoryException>("Out of memory");
        if (result == LZMA_MEMLIMIT_ERROR) methods::raiseTooLarge();
        methods::raiseDamaged("lzma", result);
    }

    lzma_stream _state = LZMA_STREAM_INIT;
};

std::int64_t pumpThrough(Decoder& decoder, InputStream& in, std::int64_t packedSize, OutputStream& out) {
    return methods::pump(in, packedSize, out, [&](auto& input, auto& space) { return decoder.step(input, space); });
}

std::int64_t decodeXz(InputStream& in, const ZipPacked& packed, OutputStream& out) {
    Decoder decoder(kXz);
    return pumpThrough(decoder, in, packed.packedSize, out);
}

std::int64_t decodeLzma(InputStream& in, const ZipPacked& packed, OutputStream& out) {
    constexpr unsigned kHasEndMark = 0x0002;
    constexpr int kHead = kHeadBytes + kPropertiesBytes;
    std::array<char, kHead> head{};
    const bool isWhole = packed.packedSize >= kHead && IOUtils::readFull(in, head.data(), kHead) == kHead;
    if (!isWhole) kZipUnit.raise<CompressionException>("unexpected EOF");
    if (loadU16(&head[2]) != kPropertiesBytes) methods::raiseDamaged("lzma", LZMA_FORMAT_ERROR);
    std::array<char, kFileHeadBytes> file;
    std::copy(head.begin() + kHeadBytes, head.end(), file.begin());
    const bool isMarked = (packed.flags & kHasEndMark) != 0;
    const auto size = static_cast<std::uint64_t>(packed.unpackedSize);
    storeLittleEndian(&file[kPropertiesBytes], isMarked ? std::numeric_limits<std::uint64_t>::max() : size);
    Decoder decoder(kLzma);
    std::span<const char> start = file;
    char unused;  // Nothing is written yet, but without any space nothing is read, either.
    std::span<char> space(&unused, 1);
    decoder.step(start, space);
    if (!start.empty()) methods::raiseDamaged("lzma", LZMA_FORMAT_ERROR);
    return pumpThrough(decoder, in, packed.packedSize - kHead, out);
}

[[maybe_unused]] const bool registered = registerZipMethod({kLzma, kAlgorithmOther, false, decodeLzma}) &&
                                         registerZipMethod({kXz, kAlgorithmOther, true, decodeXz});

}  // namespace
}  // namespace ZOV_SPACE
