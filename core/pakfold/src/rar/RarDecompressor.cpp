#include "rar/RarDecompressor.h"

#include "Raise.h"
#include "rar/RarDecompressSession.h"

namespace ZOV_SPACE {

static constexpr ThrowUnit kUnit{"../../core/pakfold/src/unarchiver/RarCompressor"};

RarDecompressor::RarDecompressor(DecompressProcessor* processor)
    : _session(std::make_unique<RarDecompressSession>(processor)) {}

RarDecompressor::~RarDecompressor() = default;

void RarDecompressor::decompress(InputStream&, OutputStream&) {
    kUnit.raise<CompressionException>("RarDecompressor::decompress() is not implemented");
}

std::string RarDecompressor::getAlgorithmName() const { return "rar"; }

// NOLINTNEXTLINE(bugprone-virtual-near-miss)
int RarDecompressor::getAlorithm() const { return kAlgorithmRar; }

void RarDecompressor::decompress(InputStream& in, std::int64_t packedSize, OutputStream& out, std::int64_t unpackedSize,
                                 int unpackVersion, int solid) {
    if (!_session) kUnit.raise<CompressionException>("Session is NULL");
    _session->decompress(in, packedSize, out, unpackedSize, unpackVersion, solid);
}

bool RarDecompressor::supports(int unpackVersion) {
    return unpackVersion == 20 || unpackVersion == 26 || unpackVersion == 29;
}

const RarOutcome& RarDecompressor::outcome() const { return _session->outcome(); }

}  // namespace ZOV_SPACE
