// Integers are put together from single bytes, so that neither the machine's byte order nor alignment matters, and from
// no more bytes than they have, so that a stream is never read further than the integer. What looks ahead does so under
// a mark and puts the stream back on every way out.
#include "IOUtils.h"

#include <algorithm>
#include <limits>

#include "Raise.h"
#include "io/InputStream.h"
#include "io/OutputStream.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"IOUtils"};
constexpr int kPeekFailedLine = 25;
constexpr int kUnexpectedEofLine = 57;

constexpr int kPieceSize = 8192;  // On the stack, which is small on some hosts' threads.
constexpr unsigned kWidestPeek = 4;

[[noreturn]] void raiseUnexpectedEof() { kUnit.raiseAt<IOException>(kUnexpectedEofLine, "unexpected EOF"); }

[[noreturn]] void raiseErrno() { kUnit.raiseAt<IOException>(kPeekFailedLine, systemErrorText()); }

// What `read` makes of the next bytes, at most `limit`, with the stream put back to where it was.
template <class Read>
auto lookAhead(InputStream& in, int limit, Read read) {
    in.mark(limit);
    try {
        const auto value = read();
        in.reset();
        return value;
    } catch (...) {
        in.reset();
        throw;
    }
}

// What `read` makes of the bytes at `offset`; `raiseEnd` throws.
template <class Read>
auto peek(InputStream& in, unsigned int offset, unsigned int width, Read read, void (*raiseEnd)()) {
    // No stream that can go back reaches beyond this, and neither the mark's limit nor skip() could express it.
    constexpr unsigned kFurthest = std::numeric_limits<int>::max() - kWidestPeek;
    if (offset > kFurthest) raiseEnd();
    return lookAhead(in, static_cast<int>(offset + width), [&] {
        in.skip(static_cast<long>(offset));
        return read(in);
    });
}

unsigned char readByteOrErrno(InputStream& in) {
    char byte;
    if (in.read(&byte, 1) != 1) raiseErrno();
    return static_cast<unsigned char>(byte);
}

}  // namespace

unsigned char IOUtils::readUChar(InputStream& in) {
    const int byte = in.read();
    if (byte == -1) raiseUnexpectedEof();
    return static_cast<unsigned char>(byte);
}

unsigned short IOUtils::readUShort(InputStream& in) {
    const unsigned low = readUChar(in);
    const unsigned high = readUChar(in);
    return static_cast<unsigned short>(high << 8 | low);
}

unsigned int IOUtils::readUInt(InputStream& in) {
    const unsigned low = readUShort(in);
    const unsigned high = readUShort(in);
    return high << 16 | low;
}

void IOUtils::writeUChar(OutputStream& out, int value) { out.write(static_cast<char>(value)); }

void IOUtils::writeUShort(OutputStream& out, unsigned int value) {
    char bytes[2];
    writeUShort(bytes, value);
    out.write(bytes, sizeof bytes);
}

void IOUtils::writeUInt(OutputStream& out, long value) {
    char bytes[4];
    writeUInt(bytes, value);
    out.write(bytes, sizeof bytes);
}

unsigned char IOUtils::getUChar(InputStream& in, unsigned int offset) {
    return peek(in, offset, 1, readByteOrErrno, raiseErrno);
}

unsigned short IOUtils::getUShort(InputStream& in, unsigned int offset) {
    return peek(
        in, offset, 2, [](InputStream& stream) { return readUShort(stream); }, raiseUnexpectedEof);
}

unsigned int IOUtils::getUInt(InputStream& in, unsigned int offset) {
    return peek(
        in, offset, 4, [](InputStream& stream) { return readUInt(stream); }, raiseUnexpectedEof);
}

int IOUtils::readFull(InputStream& in, char* buf, int n) {
    int total = 0;
    while (total < n) {
        const int count = in.read(buf + total, n - total);
        if (count < 1) break;
        total += count;
    }
    return total;
}

int IOUtils::peekFull(InputStream& in, char* buf, int n) {
    return lookAhead(in, n, [&] { return readFull(in, buf, n); });
}

long IOUtils::readFull(InputStream& in) {
    char piece[kPieceSize];
    std::int64_t total = 0;
    for (int count = 0; (count = in.read(piece, kPieceSize)) > 0;) total += count;
    return static_cast<long>(std::min<std::int64_t>(total, std::numeric_limits<long>::max()));
}

void IOUtils::readAndWrite(InputStream& in, OutputStream& out) {
    char piece[kPieceSize];
    for (int count = 0; (count = in.read(piece, kPieceSize)) > 0;) out.write(piece, count);
}

void IOUtils::readAndWrite(InputStream& in, OutputStream& out, long n) {
    char piece[kPieceSize];
    while (n > 0) {
        const int count = in.read(piece, static_cast<int>(std::min<long>(n, kPieceSize)));
        if (count < 1) break;
        out.write(piece, count);
        n -= count;
    }
}

std::string IOUtils::readString(InputStream& in) {
    std::string text;
    for (int byte = 0; (byte = in.read()) > 0;) text.push_back(static_cast<char>(byte));
    return text;
}

}  // namespace ZOV_SPACE
