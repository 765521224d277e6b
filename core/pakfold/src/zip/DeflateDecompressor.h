// DeflateDecompressor: inflates deflated data (RFC 1951, or RFC 1950 with header and trailer). Data of which size and
// check-sum are announced, and are small enough, is decoded in one go where that comes out just so. All other data is
// streamed through zlib, in fixed memory: one input and one output buffer a call, and zlib's own state.
#ifndef PAKFOLD_ZIP_DEFLATEDECOMPRESSOR_H
#define PAKFOLD_ZIP_DEFLATEDECOMPRESSOR_H

#include <cstdint>
#include <string>

#include "unarchiver/Pakfold.h"
#include "zip/WholeInflate.h"

namespace ZOV_SPACE {

class DeflateDecompressor : public Decompressor {
public:
    static constexpr int kInputPiece = 33792;   // Most bytes asked of the input at a time.
    static constexpr int kOutputPiece = 51200;  // Bytes written at a time, but for the last.
    static constexpr std::int64_t kUnknownSize = -1;

    // `raw`: the data has neither zlib header nor trailer. The processor may be null; it is borrowed, and asked before
    // each piece of output is written.
    DeflateDecompressor(bool raw, DecompressProcessor* processor) : _raw(raw), _processor(processor) {}
    ~DeflateDecompressor() override;

    using Decompressor::decompress;
    // Inflates at most `compressedSize` bytes of the input, which must support marks. Of a known size all may have been
    // read when it returns; with kUnknownSize the input stands right behind the deflated data, or behind what zlib took
    // of damaged data.
    // An output that lends space is filled in place. Returns how many bytes of a known size are left behind the
    // deflated data; 0 when the processor stopped it. What could be inflated has been written when it throws:
    // CompressionException "mark() not supported by input stream", "inflate: need dictionary", or "inflate: error "
    // with zlib's code and text (code -5 when the data ends too soon); OutOfMemoryException "Out of memory"; what the
    // streams throw. What is `announced` of raw data of a known size makes it fast, and changes nothing else.
    std::int64_t decompress(InputStream& in, std::int64_t compressedSize, OutputStream& out,
                            const InflatedAs& announced = {});
    // The same in one go, for an output that lends memory or is written in pieces. Returns how many bytes the deflated
    // data takes; 0 when it cannot be had like that, and nothing was read or written.
    std::int64_t decompressWhole(InputStream& in, std::int64_t compressedSize, OutputStream& out,
                                 const InflatedAs& announced);
    // Whether a message is that for data that ends too soon.
    static bool saysTooShort(const std::string& message);

    int getAlgorithm() const override;              // kAlgorithmDeflate
    std::string getAlgorithmName() const override;  // "inflate"
    static const char* version();                   // zlib's.

private:
    std::int64_t stream(InputStream& in, std::int64_t compressedSize, OutputStream& out);

    bool _raw;
    DecompressProcessor* _processor;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_DEFLATEDECOMPRESSOR_H
