// OutputSpace: an output stream that may lend the memory its bytes end up in, so that they can be produced there
// instead of being copied. Streams that can do so derive from it besides OutputStream.
#ifndef PAKFOLD_UTILS_OUTPUTSPACE_H
#define PAKFOLD_UTILS_OUTPUTSPACE_H

#include <span>

namespace ZOV_SPACE {

class OutputSpace {
public:
    OutputSpace() = default;
    OutputSpace(const OutputSpace&) = delete;
    OutputSpace& operator=(const OutputSpace&) = delete;
    virtual ~OutputSpace() = default;

    // Writable bytes behind what was written so far, as many as the stream likes; none when it wants write() called
    // from now on. They may be used until the next operation on the stream.
    virtual std::span<char> lendSpace() = 0;
    // The first `n` bytes that were lent last have been written.
    virtual void commitSpace(long n) = 0;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_UTILS_OUTPUTSPACE_H
