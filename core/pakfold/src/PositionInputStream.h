// PositionInputStream: forwards to another stream, which is borrowed, and knows how many bytes were taken from it.
#ifndef PAKFOLD_POSITIONINPUTSTREAM_H
#define PAKFOLD_POSITIONINPUTSTREAM_H

#include <cstdint>

#include "io/InputStream.h"

namespace ZOV_SPACE {

class PositionInputStream : public FilterInputStream {
public:
    // `position` counts from wherever the caller counts from; the inner stream stands there.
    explicit PositionInputStream(InputStream* in, std::int64_t position = 0)
        : FilterInputStream(in), _position(position), _mark(position) {}
    ~PositionInputStream() override;

    int read() override;
    int read(char* buf, int len) override;
    long skip(long n) override;
    void mark(int readLimit) override;
    void reset() override;

    std::int64_t position() const { return _position; }
    // Skips forward to a position; one that lies behind changes nothing.
    void skipTo(std::int64_t position);

private:
    std::int64_t _position;
    std::int64_t _mark;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_POSITIONINPUTSTREAM_H
