// Finds the end of data whose size only the descriptor behind it says. There are two ways:
//
//  - Deflated data marks its own end, so it is inflated: in one go if the next descriptor behind its start is its own,
//    which then says to what. While the content is small it is kept, and need not be inflated a second time if somebody
//    wants it.
//  - Other data marks nothing. Its end is the first place where the bytes read as a descriptor whose packed size is
//    just the distance from the start and, for stored data, whose other size is the same and whose checksum is that of
//    the bytes in between. The checksum grows as the search goes on, so that a file full of false ends costs no more
//    than any other.
//
// Looking ahead is work that may turn out to be for nothing, and an archive can ask for it again and again. So it is
// bounded by what is left of the scan's budget, and charged if nothing came of it.
#include "zip/ZipDataExtent.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "ByteOrder.h"
#include "IOUtils.h"
#include "PositionInputStream.h"
#include "io/BufferBaseStreams.h"
#include "unarchiver/ScanBudget.h"
#include "utils/Crc.h"
#include "zip/DeflateDecompressor.h"
#include "zip/DescriptorFinder.h"
#include "zip/ZipConstants.h"
#include "zip/ZipDescriptor.h"
#include "zip/ZipSupport.h"

namespace ZOV_SPACE {
namespace {

constexpr long kFirstSearchPiece = 1024;
constexpr long kSearchPiece = 65536;
constexpr int kLookAhead = ZipDescriptor::kLookAhead;

// How far one search may go. What it costs is settled when it is known what came of it.
class Limit {
public:
    // REQUIRES: `n`, how far the search has come, in bytes, does not go back.
    void check(std::int64_t n) const {
        if (!allows(n)) ScanBudget::chargeDiscardedBytes(n);  // Throws: so much is not left.
    }
    bool allows(std::int64_t n) const { return n <= _most; }

private:
    std::int64_t _most = std::max(ScanBudget::discardedBytesLeft(), ZipDataExtent::kFreeLookAhead);
};

// Counts what is inflated, and keeps it while it is little.
class ContentKeeper : public OutputStream {
public:
    explicit ContentKeeper(ZipDataExtent& extent) : _extent(extent) { _extent.hasContent = true; }

    using OutputStream::write;
    int write(const char* buf, int len) override {
        _extent.inflated += len;
        _extent.unpackedSize = _extent.inflated;
        _limit.check(_extent.inflated);
        if (_extent.inflated > ZipDataExtent::kMostKept) {
            _extent.content = {};
            _extent.hasContent = false;
        } else {
            _extent.content.emplace_back(buf, static_cast<std::size_t>(len));
        }
        return len;
    }

private:
    ZipDataExtent& _extent;
    const Limit _limit;
};

// Slides over the buffer in pieces that overlap, so that whatever begins in one can be seen whole. They grow, so that a
// search costs about as much as it has to pass over.
class Search {
public:
    Search(BufferBase& buffer, long start) : _buffer(buffer), _next(start) {}

    // False at the buffer's end.
    bool nextPiece() {
        const int count = _buffer.read(_next, _bytes.get(), static_cast<int>(_wanted) + kLookAhead);
        if (count < 1) return false;
        std::memset(_bytes.get() + count, 0, kLookAhead);
        _start = _next;
        _count = std::min<long>(count, _wanted);
        _next += _count;
        _wanted = std::min(2 * _wanted, kSearchPiece);
        return true;
    }

    long start() const { return _start; }  // Of the piece, in the buffer.
    long count() const { return _count; }  // Positions in it, each followed by kLookAhead readable bytes.
    const char* bytes() const { return _bytes.get(); }

private:
    BufferBase& _buffer;
    long _next;
    long _wanted = kFirstSearchPiece;
    long _start = 0;
    long _count = 0;
    std::unique_ptr<char[]> _bytes =
        std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(kSearchPiece) + std::size_t{2} * kLookAhead);
};

// The checksum of the bytes from the start up to a position that only moves forward.
class RunningCheckSum {
public:
    RunningCheckSum(const Search& search, long start) : _search(search), _done(start) {}

    // REQUIRES: the position is in the current piece, or where it ends.
    std::uint32_t upTo(long position) {
        _crc.add(_search.bytes() + (_done - _search.start()), static_cast<unsigned>(position - _done));
        _done = position;
        return _crc.crc();
    }

private:
    const Search& _search;
    long _done;
    Iso3309Crc _crc;
};

std::uint32_t checkSumOfDescriptor(InputStream& in) {
    std::array<char, kLookAhead> bytes{};
    IOUtils::readFull(in, bytes.data(), static_cast<int>(bytes.size()));
    const auto descriptor = ZipDescriptor::read(bytes.data());
    return descriptor ? descriptor->checkSum : 0;
}

enum class Data { stored, storedOrOdd, foreign };

ZipDataExtent findExtent(BufferBase& buffer, long start, Data data) {
    const bool stored = data != Data::foreign;
    ZipDataExtent extent, odd;
    extent.known = true;
    const Limit limit;
    Search search(buffer, start);
    RunningCheckSum checkSum(search, start);
    while (search.nextPiece()) {
        for (long i = 0; i < search.count(); ++i) {
            const char* const bytes = search.bytes() + i;
            const auto distance = static_cast<std::uint32_t>(search.start() - start + i);
            if (loadU32(bytes + 4) != distance && loadU32(bytes + 8) != distance) continue;
            const auto descriptor = ZipDescriptor::read(bytes);
            if (!descriptor || !descriptor->isEvident || descriptor->packedSize != distance) continue;
            const bool isRight = !stored || (descriptor->unpackedSize == distance &&
                                             checkSum.upTo(search.start() + i) == descriptor->checkSum);
            if (!isRight && (data == Data::stored || odd.known)) continue;
            ZipDataExtent& found = isRight ? extent : odd;
            found.known = true;
            found.packedSize = distance;
            found.unpackedSize = descriptor->unpackedSize;
            found.checkSum = descriptor->checkSum;
            if (isRight) return extent;
        }
        limit.check(search.start() - start + search.count());
        if (stored) checkSum.upTo(search.start() + search.count());
    }
    extent.packedSize = extent.unpackedSize = std::max(buffer.getSize() - start, 0L);
    ScanBudget::chargeDiscardedBytes(extent.packedSize);
    if (odd.known) return odd;
    extent.failure = "missing data descriptor";
    return extent;
}

// Lends memory for all that is announced, and keeps it.
class WholeKeeper : public OutputStream {
public:
    WholeKeeper(ZipDataExtent& extent, std::size_t size)
        : _extent(extent), _size(size), _bytes(new (std::nothrow) char[size]) {}

    std::span<char> lendSpace() override { return {_bytes.get(), _bytes ? _size : 0}; }
    void commitSpace(long n) override {
        _extent.whole = std::move(_bytes);
        _extent.inflated = _extent.unpackedSize = n;
        _extent.hasContent = true;
    }
    bool takesAtOnce(std::int64_t) const override { return true; }

private:
    ZipDataExtent& _extent;
    std::size_t _size;
    std::unique_ptr<char[]> _bytes;
};

bool keepWhole(InputStream& data, const ZipDescriptor& descriptor, ZipDataExtent& extent) {
    const std::uint32_t size = descriptor.unpackedSize;
    if (size > ZipDataExtent::kMostKept || !Limit().allows(size)) return false;
    WholeKeeper keeper(extent, size);
    extent.packedSize = DeflateDecompressor(true, nullptr)
                            .decompressWhole(data, descriptor.packedSize, keeper, {size, descriptor.checkSum});
    return extent.packedSize > 0;
}

void keepInflated(InputStream& data, ZipDataExtent& extent) {
    PositionInputStream counted(&data);
    ContentKeeper keeper(extent);
    try {
        DeflateDecompressor(true, nullptr).decompress(counted, DeflateDecompressor::kUnknownSize, keeper);
    } catch (CompressionException& damage) {
        extent.failure = damage.getMessage();
    }
    extent.packedSize = counted.position();
}

}  // namespace

void ZipDataExtent::writeContent(OutputStream& out) const {
    constexpr std::int64_t kPiece = DeflateDecompressor::kOutputPiece;
    for (const std::string& piece : content) out.write(piece.data(), static_cast<int>(piece.size()));
    for (std::int64_t at = 0; whole && at < unpackedSize; at += kPiece) {
        out.write(whole.get() + at, static_cast<int>(std::min(unpackedSize - at, kPiece)));
    }
}

ZipDataExtent findDeflatedExtent(BufferBase& buffer, long start, DescriptorFinder& descriptors) {
    ZipDataExtent extent;
    extent.known = true;
    BufferBaseInputStream data(&buffer, start);
    const auto announced = descriptors.behind(start);
    if (!announced || !keepWhole(data, *announced, extent)) keepInflated(data, extent);
    // What comes to nothing may be much to read and little to write: blocks can be empty.
    const std::int64_t readForNothing = extent.failure.empty() ? 0 : extent.packedSize - ZipDataExtent::kFreeLookAhead;
    extent.inflated = std::max(extent.inflated, readForNothing);
    BufferBaseInputStream behind(&buffer, start + static_cast<long>(extent.packedSize));
    extent.checkSum = checkSumOfDescriptor(behind);
    return extent;
}

ZipDataExtent findStoredExtent(BufferBase& buffer, long start) { return findExtent(buffer, start, Data::stored); }

ZipDataExtent findStoredOrOddExtent(BufferBase& buffer, long start) {
    return findExtent(buffer, start, Data::storedOrOdd);
}

ZipDataExtent findForeignExtent(BufferBase& buffer, long start) { return findExtent(buffer, start, Data::foreign); }

long findLocalHeader(BufferBase& buffer, long start) {
    Search search(buffer, start);
    while (search.nextPiece()) {
        // The last position may be followed by three more bytes of a signature.
        const char* const end = search.bytes() + search.count();
        for (const char* p = search.bytes(); p < end; ++p) {
            p = static_cast<const char*>(std::memchr(p, 'P', static_cast<std::size_t>(end - p)));
            if (!p) break;
            if (loadU32(p) == ZipConstants::LOCSIG) return search.start() + (p - search.bytes());
        }
    }
    return -1;
}

}  // namespace ZOV_SPACE
