#include "streams/StreamDecoder.h"

#include <algorithm>

#include "Raise.h"
#include "streams/StreamTroubles.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"StreamDecoder"};
constexpr int kPiece = 65536;

}  // namespace

StreamDecoder::Step StreamDecoder::failed(const char* library, int code) {
    return {false, std::string(library) + ": error " + std::to_string(code)};
}

void StreamDecoder::raiseOutOfMemory() { kUnit.raise<OutOfMemoryException>("Out of memory"); }

bool DecodedOutput::take(StreamDecoder& decoder, std::span<const char>& input) {
    std::span<char> left = space();
    const std::size_t room = left.size(), given = input.size();
    const StreamDecoder::Step step = decoder.step(input, left);
    const std::size_t made = room - left.size();
    commit(made);
    if (!step.failure.empty()) kUnit.raise<CompressionException>(step.failure);
    const bool isStuck = made == 0 && input.size() == given;
    if (isStuck && !step.isLast) kUnit.raise<CompressionException>(streamTroubles::kUnexpectedEnd);
    return !step.isLast;
}

std::span<char> DecodedOutput::space() {
    if (!_piece) {
        const std::span<char> lent = _out.lendSpace();
        if (!lent.empty()) return lent;
        _piece = std::make_unique_for_overwrite<char[]>(kPiece);
    }
    return {_piece.get(), kPiece};
}

void DecodedOutput::commit(std::size_t count) {
    _made += static_cast<std::int64_t>(count);
    if (!_piece) {
        _out.commitSpace(static_cast<long>(count));
    } else if (count > 0) {
        _out.write(_piece.get(), static_cast<int>(count));
    }
}

std::int64_t decodeAll(StreamDecoder& decoder, InputStream& in, std::int64_t packedSize, OutputStream& out) {
    const auto bytes = std::make_unique_for_overwrite<char[]>(kPiece);
    DecodedOutput decoded(out);
    std::int64_t left = packedSize;
    std::span<const char> input;
    for (bool goesOn = true; goesOn;) {
        if (input.empty() && left > 0) {
            const int count = in.read(bytes.get(), static_cast<int>(std::min<std::int64_t>(left, kPiece)));
            input = {bytes.get(), static_cast<std::size_t>(std::max(count, 0))};
            left -= static_cast<std::int64_t>(input.size());
        }
        goesOn = decoded.take(decoder, input);
    }
    return left + static_cast<std::int64_t>(input.size());
}

}  // namespace ZOV_SPACE
