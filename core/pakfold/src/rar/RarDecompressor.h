// RarDecompressor.h: the decompressor for the entries of one RAR archive, in the order of the archive.
#ifndef PAKFOLD_RAR_RARDECOMPRESSOR_H
#define PAKFOLD_RAR_RARDECOMPRESSOR_H

#include <cstdint>
#include <memory>
#include <string>

#include "rar/RarTroubles.h"
#include "unarchiver/Pakfold.h"

namespace ZOV_SPACE {

class RarDecompressSession;

// Used by one thread at a time. After an exception that is not the target's own, no further entry can be decoded
// that continues another one.
class RarDecompressor : public Decompressor {
public:
    // The processor, which may be null, is borrowed. It may end entries that are not solid.
    explicit RarDecompressor(DecompressProcessor* processor);
    ~RarDecompressor() override;

    // A RAR entry needs more to be said. Throws CompressionException "RarDecompressor::decompress() is not
    // implemented".
    void decompress(InputStream& in, OutputStream& out) override;
    std::string getAlgorithmName() const override;  // "rar"
    // NOLINTNEXTLINE(bugprone-virtual-near-miss): kAlgorithmRar, spelled so.
    virtual int getAlorithm() const;

    // Decodes the next entry: at most `packedSize` bytes from the stream, to at most `unpackedSize` bytes. `solid` is
    // not 0 for an entry that continues the one before it. Data that makes no sense to the method ends the entry
    // quietly; not everything may have been read then.
    //   Throws:  CompressionException "Unsupported RAR unpack version:<number>"; IOException as RarBitInputStream and
    //            RarBufferOutputStream do; OutOfMemoryException; what the streams throw.
    void decompress(InputStream& in, std::int64_t packedSize, OutputStream& out, std::int64_t unpackedSize,
                    int unpackVersion, int solid);
    static bool supports(int unpackVersion);
    const RarOutcome& outcome() const;  // Of the entry decoded last, also when that threw.

private:
    std::unique_ptr<RarDecompressSession> _session;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_RARDECOMPRESSOR_H
