#include "io/ForeignMemBufferBase.h"

#include <algorithm>
#include <cstring>

#include "Raise.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"io/ForeignMemBufferBase"};

}  // namespace

ForeignMemBufferBase::~ForeignMemBufferBase() = default;

std::span<const char> ForeignMemBufferBase::view(long pos) {
    if (pos < 0 || pos >= getSize()) return {};
    return _bytes.subspan(static_cast<std::size_t>(pos));
}

int ForeignMemBufferBase::read(long pos) {
    if (pos < 0) kUnit.raise<IOException>("Index out of bound");
    const auto bytes = view(pos);
    return bytes.empty() ? -1 : static_cast<unsigned char>(bytes.front());
}

int ForeignMemBufferBase::read(long pos, char* buf, int n) {
    if (!buf || n < 1) return 0;
    if (pos < 0) kUnit.raise<IOException>("Index out of bound");
    const auto bytes = view(pos);
    const auto count = std::min(bytes.size(), static_cast<std::size_t>(n));
    if (count != 0) std::memcpy(buf, bytes.data(), count);
    return static_cast<int>(count);
}

}  // namespace ZOV_SPACE
