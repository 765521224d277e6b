#include "zip/deep/ZipMethods.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <span>

#include "IOUtils.h"
#include "unarchiver/Pakfold.h"
#include "zip/DeflateDecompressor.h"
#include "zip/ZipConstants.h"

namespace ZOV_SPACE {
namespace {

std::int64_t copyStored(InputStream& in, const ZipPacked& packed, OutputStream& out) {
    std::int64_t left = packed.packedSize;
    while (left > 0) {
        const std::span<char> space = out.lendSpace();
        const auto wanted = std::min<std::int64_t>(static_cast<std::int64_t>(space.size()), left);
        if (wanted == 0) break;
        const int count = in.read(space.data(), static_cast<int>(std::min<std::int64_t>(wanted, 1 << 30)));
        if (count < 1) return 0;
        out.commitSpace(count);
        left -= count;
    }
    constexpr std::int64_t kMost = std::numeric_limits<long>::max();  // More than any content has.
    IOUtils::readAndWrite(in, out, static_cast<long>(std::min(left, kMost)));
    return 0;
}

std::int64_t inflate(InputStream& in, const ZipPacked& packed, OutputStream& out) {
    return DeflateDecompressor(true, nullptr)
        .decompress(in, packed.packedSize, out, {packed.unpackedSize, packed.checkSum});
}

constinit std::array<ZipMethod, 8> methods{{
    {ZipConstants::STORED, kAlgorithmStored, false, copyStored},
    {ZipConstants::DEFLATED, kAlgorithmDeflate, true, inflate},
}};
constinit std::size_t methodCount = 2;

}  // namespace

bool registerZipMethod(const ZipMethod& method) {
    methods.at(methodCount) = method;
    ++methodCount;
    return true;
}

const ZipMethod* findZipMethod(unsigned number) {
    const std::span<const ZipMethod> known = std::span(methods).first(methodCount);
    const auto found =
        std::find_if(known.begin(), known.end(), [number](const ZipMethod& method) { return method.number == number; });
    return found == known.end() ? nullptr : &*found;
}

}  // namespace ZOV_SPACE
