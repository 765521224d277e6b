// XZ and the file format before it, by liblzma: files, and methods 95 and 14 of ZIP archives. LZMA data has a head of
// its own in ZIP archives: a version and a length of two bytes each, then the properties. With the unpacked size behind
// these it is the older file format.
#include <lzma.h>

#include <array>
#include <limits>

#include "ByteOrder.h"
#include "IOUtils.h"
#include "streams/StreamDecoder.h"
#include "streams/StreamTroubles.h"
#include "streams/StreamUnarchiver.h"
#include "unarchiver/Pakfold.h"
#include "zip/ZipSupport.h"
#include "zip/deep/ZipMethods.h"

namespace ZOV_SPACE {
namespace {

constexpr unsigned kZipLzma = 14, kZipXz = 95;
constexpr int kZipHeadBytes = 4, kPropertiesBytes = 5, kFileHeadBytes = kPropertiesBytes + 8;

class LibDecoder : public StreamDecoder {
public:
    ~LibDecoder() override { ::lzma_end(&_state); }

    Step step(std::span<const char>& input, std::span<char>& space) override {
        _state.next_in = reinterpret_cast<const std::uint8_t*>(input.data());
        _state.avail_in = input.size();
        _state.next_out = reinterpret_cast<std::uint8_t*>(space.data());
        _state.avail_out = space.size();
        const lzma_ret result = ::lzma_code(&_state, LZMA_RUN);
        input = input.last(_state.avail_in);
        space = space.last(_state.avail_out);
        if (result == LZMA_MEM_ERROR) raiseOutOfMemory();
        if (result == LZMA_MEMLIMIT_ERROR) return {false, streamTroubles::kTooMuchMemory};
        // Of an error of the buffers the caller sees that nothing moved.
        const bool goesOn = result == LZMA_OK || result == LZMA_BUF_ERROR;
        if (!goesOn && result != LZMA_STREAM_END) return failed("lzma", result);
        return {!goesOn, {}};
    }

protected:
    static void check(lzma_ret result) {
        if (result != LZMA_OK) raiseOutOfMemory();  // Nothing else can happen when a decoder is made.
    }

    lzma_stream _state = LZMA_STREAM_INIT;
};

class XzDecoder : public LibDecoder {
public:
    static constexpr const char* kName = "xz";

    XzDecoder() { init(); }

    const char* method() const override { return "xz"; }
    bool isAt(ContentBytes& bytes, std::int64_t position) const override {
        constexpr std::string_view kMark(
            "\xFD"
            "7zXZ\0",
            6);
        const auto head = bytes.at(position, kMark.size());
        return std::string_view(head.data(), head.size()) == kMark;
    }
    std::int64_t begin(ContentBytes&, std::int64_t position) override {
        init();
        return position;
    }

private:
    void init() { check(::lzma_stream_decoder(&_state, kMostDecoderMemory, 0)); }
};

class LzmaDecoder : public LibDecoder {
public:
    static constexpr const char* kName = "lzma";

    LzmaDecoder() { check(::lzma_alone_decoder(&_state, kMostDecoderMemory)); }

    const char* method() const override { return "lzma"; }
    bool isAt(ContentBytes&, std::int64_t position) const override { return position == 0; }  // There is only one.
    std::int64_t begin(ContentBytes&, std::int64_t position) override { return position; }
};

std::int64_t decodeXz(InputStream& in, const ZipPacked& packed, OutputStream& out) {
    XzDecoder decoder;
    return decodeAll(decoder, in, packed.packedSize, out);
}

std::int64_t decodeLzma(InputStream& in, const ZipPacked& packed, OutputStream& out) {
    constexpr unsigned kHasEndMark = 0x0002;
    constexpr int kHead = kZipHeadBytes + kPropertiesBytes;
    std::array<char, kHead> head{};
    const bool isWhole = packed.packedSize >= kHead && IOUtils::readFull(in, head.data(), kHead) == kHead;
    if (!isWhole) kZipUnit.raise<CompressionException>(streamTroubles::kUnexpectedEnd);
    if (loadU16(&head[2]) != kPropertiesBytes) kZipUnit.raise<CompressionException>("lzma: no properties");
    std::array<char, kFileHeadBytes> file;
    std::copy(head.begin() + kZipHeadBytes, head.end(), file.begin());
    const bool isMarked = (packed.flags & kHasEndMark) != 0;
    const auto size = static_cast<std::uint64_t>(packed.unpackedSize);
    storeLittleEndian(&file[kPropertiesBytes], isMarked ? std::numeric_limits<std::uint64_t>::max() : size);
    LzmaDecoder decoder;
    DecodedOutput none(out);  // Nothing comes out of the head.
    std::span<const char> start = file;
    none.take(decoder, start);
    return decodeAll(decoder, in, packed.packedSize - kHead, out);
}

[[maybe_unused]] const bool registered = registerZipMethod({kZipLzma, kAlgorithmOther, false, decodeLzma}) &&
                                         registerZipMethod({kZipXz, kAlgorithmOther, true, decodeXz}) &&
                                         registerStream<XzDecoder>() && registerStream<LzmaDecoder>();

}  // namespace
}  // namespace ZOV_SPACE
