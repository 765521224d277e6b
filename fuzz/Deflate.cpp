// Deflated data by the way that announced data takes, and by zlib alone.
#include "Target.h"
#include "io/BufferBaseStreams.h"
#include "io/MemBufferBase.h"
#include "utils/Crc.h"
#include "zip/DeflateDecompressor.h"

using namespace ZOV_SPACE;

namespace {

class LendingOutput : public OutputStream {
public:
    explicit LendingOutput(std::size_t loan) : _loan(loan) {}

    using OutputStream::write;
    int write(const char* buf, int len) override { return bytes.append(buf, static_cast<std::size_t>(len)), len; }
    std::span<char> lendSpace() override { return _lent.assign(_loan, '\0'), std::span<char>(_lent); }
    void commitSpace(long n) override { bytes.append(_lent, 0, static_cast<std::size_t>(n)); }
    bool takesAtOnce(std::int64_t) const override { return true; }

    std::string bytes;

private:
    std::size_t _loan;
    std::string _lent;
};

struct Outcome {
    std::string bytes, failure;
    std::int64_t left = 0;
};

Outcome inflate(std::string_view packed, std::size_t loan, const InflatedAs& announced) {
    MemBufferBase buffer;
    buffer.append(packed.data(), static_cast<int>(packed.size()));
    BufferBaseInputStream in(&buffer);
    LendingOutput out(loan);
    Outcome outcome;
    try {
        const auto size = static_cast<std::int64_t>(packed.size());
        outcome.left = DeflateDecompressor(true, nullptr).decompress(in, size, out, announced);
    } catch (CompressionException& failure) {
        outcome.failure = failure.getMessage();
    }
    outcome.bytes = out.bytes;
    return outcome;
}

}  // namespace

// The first byte says what is announced: what comes out, or more or less than that, or another check-sum; and whether
// memory for all of it is lent, or for some, or none. Only of data that zlib refuses may more be said to be right, and
// then no byte may be another.
void inflateTwice(std::string_view input) {
    if (input.empty()) return;
    const unsigned mode = static_cast<unsigned char>(input[0]);
    const Outcome streamed = inflate(input.substr(1), 0, {});
    const auto size = static_cast<std::int64_t>(streamed.bytes.size());
    Iso3309Crc sum;
    sum.add(streamed.bytes.data(), static_cast<unsigned>(streamed.bytes.size()));
    const InflatedAs announced{size + (mode % 8 == 1) - (mode % 8 == 2), sum.crc() ^ (mode % 8 == 3)};
    const std::size_t loans[] = {0, 100, static_cast<std::size_t>(size), std::size_t{1} << 18};
    const Outcome tried = inflate(input.substr(1), loans[mode / 64], announced);
    require(tried.bytes == streamed.bytes);
    const bool isSame = tried.failure == streamed.failure && tried.left == streamed.left;
    require(isSame || (tried.failure.empty() && !streamed.failure.empty()));
    note(streamed.bytes + streamed.failure + std::to_string(streamed.left));
}
