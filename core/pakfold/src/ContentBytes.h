// ContentBytes: what stands at any position of a buffer, in place where the buffer keeps it in memory, else through a
// window of its own. Borrows the buffer; throws what that throws. Used by one thread at a time.
#ifndef PAKFOLD_CONTENTBYTES_H
#define PAKFOLD_CONTENTBYTES_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "io/BufferBase.h"

namespace ZOV_SPACE {

class ContentBytes {
public:
    explicit ContentBytes(BufferBase& buffer) : _buffer(buffer), _size(buffer.getSize()) {}

    BufferBase& buffer() { return _buffer; }
    std::int64_t size() const { return _size; }
    // So many bytes, fewer only where the buffer ends; none outside of it. Valid until the next call.
    std::span<const char> at(std::int64_t position, std::size_t count);
    // As many bytes as are at hand, at least one unless the buffer has ended. Valid until the next call.
    std::span<const char> from(std::int64_t position);
    // For searches that go on where they found something: what is left from there of a block of kBlock bytes, and
    // kOverlap more, so that a window that was filled once serves all that is looked for in the block.
    static constexpr std::int64_t kBlock = 65536, kOverlap = 64;
    std::span<const char> restOfBlock(std::int64_t position) {
        return at(position, static_cast<std::size_t>(kBlock - position % kBlock + kOverlap));
    }
    // The number there, 0 where the buffer has ended.
    std::uint32_t signatureAt(std::int64_t position);

private:
    std::span<const char> held(std::int64_t position) const;

    BufferBase& _buffer;
    std::int64_t _size;
    std::vector<char> _window;
    std::int64_t _windowStart = 0;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_CONTENTBYTES_H
