// bzip2, by libbz2: files, and method 12 of ZIP archives. Its memory is a few MiB, whatever the data says.
#include <bzlib.h>

#include "streams/StreamDecoder.h"
#include "streams/StreamUnarchiver.h"
#include "unarchiver/Pakfold.h"
#include "zip/deep/ZipMethods.h"

namespace ZOV_SPACE {
namespace {

constexpr unsigned kZipMethod = 12;

class Bzip2Decoder : public StreamDecoder {
public:
    static constexpr const char* kName = "bzip2";

    Bzip2Decoder() { init(); }
    ~Bzip2Decoder() override { ::BZ2_bzDecompressEnd(&_state); }

    Step step(std::span<const char>& input, std::span<char>& space) override {
        _state.next_in = const_cast<char*>(input.data());  // Which is only read.
        _state.avail_in = static_cast<unsigned>(input.size());
        _state.next_out = space.data();
        _state.avail_out = static_cast<unsigned>(space.size());
        const int result = ::BZ2_bzDecompress(&_state);
        input = input.last(_state.avail_in);
        space = space.last(_state.avail_out);
        if (result == BZ_MEM_ERROR) raiseOutOfMemory();
        if (result != BZ_OK && result != BZ_STREAM_END) return failed(kName, result);
        return {result == BZ_STREAM_END, {}};
    }

    const char* method() const override { return "bzip2"; }
    bool isAt(ContentBytes& bytes, std::int64_t position) const override {
        const auto head = bytes.at(position, 4);
        return head.size() == 4 && head[0] == 'B' && head[1] == 'Z' && head[2] == 'h' && head[3] >= '1' &&
               head[3] <= '9';
    }
    std::int64_t begin(ContentBytes&, std::int64_t position) override {
        ::BZ2_bzDecompressEnd(&_state);
        init();
        return position;
    }

private:
    void init() {
        _state = {};
        if (::BZ2_bzDecompressInit(&_state, 0, 0) != BZ_OK) raiseOutOfMemory();
    }

    bz_stream _state{};
};

std::int64_t decode(InputStream& in, const ZipPacked& packed, OutputStream& out) {
    Bzip2Decoder decoder;
    return decodeAll(decoder, in, packed.packedSize, out);
}

[[maybe_unused]] const bool registered =
    registerZipMethod({kZipMethod, kAlgorithmOther, true, decode}) && registerStream<Bzip2Decoder>();

}  // namespace
}  // namespace ZOV_SPACE
