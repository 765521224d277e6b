// What the methods of outside libraries share: bytes are carried to the library and from it in pieces.
#ifndef PAKFOLD_ZIP_METHODS_STREAMING_H
#define PAKFOLD_ZIP_METHODS_STREAMING_H

#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "io/InputStream.h"
#include "io/OutputStream.h"
#include "zip/ZipSupport.h"
#include "zip/ZipTroubles.h"

namespace ZOV_SPACE::methods {

// What one member's data may have a library allocate, in bytes; most of it is the window that the data asks for.
inline constexpr std::uint64_t kMostMemory = std::uint64_t{160} << 20;

[[noreturn]] inline void raiseDamaged(const char* library, int code) {
    kZipUnit.raise<CompressionException>(std::string(library) + ": error " + std::to_string(code));
}
[[noreturn]] inline void raiseTooLarge() { kZipUnit.raise<CompressionException>(zipTroubles::kTooMuchMemory); }

// Has step(input, space) decode from the one into the other and move both behind what it used; true ends the data.
// Reads `packedSize` bytes at most, and returns how many of them are left.
template <class Step>
std::int64_t pump(InputStream& in, std::int64_t packedSize, OutputStream& out, Step step) {
    constexpr int kPiece = 65536;
    const auto bytes = std::make_unique_for_overwrite<char[]>(kPiece);
    const auto unpacked = std::make_unique_for_overwrite<char[]>(kPiece);
    std::int64_t left = packedSize;
    std::span<const char> input;
    for (bool ended = false; !ended;) {
        if (input.empty()) {
            const int count =
                left > 0 ? in.read(bytes.get(), static_cast<int>(std::min<std::int64_t>(left, kPiece))) : 0;
            input = {bytes.get(), static_cast<std::size_t>(std::max(count, 0))};
            left -= static_cast<std::int64_t>(input.size());
        }
        std::span<char> space(unpacked.get(), kPiece);
        const std::size_t before = input.size();
        ended = step(input, space);
        const int made = kPiece - static_cast<int>(space.size());
        if (made > 0) out.write(unpacked.get(), made);
        const bool isStuck = made == 0 && input.size() == before;
        if (isStuck && !ended) kZipUnit.raise<CompressionException>("unexpected EOF");
    }
    return left + static_cast<std::int64_t>(input.size());
}

}  // namespace ZOV_SPACE::methods

#endif  // PAKFOLD_ZIP_METHODS_STREAMING_H
