// A ZIP archive is a row of entries, each a local header with its data behind it, then the central directory with one
// record for each entry, then the end record (APPNOTE.TXT, "Overall .ZIP file format"). Most readers begin at the end
// and go by the directory. This walk goes by the local headers: it finds entries that the directory hides, it works on
// a stream, and an archive that was cut off still gives up what is in front of the cut. The price is that the walk must
// know where each entry's data ends before it can see the next header:
//
//  - The local header gives the packed size, or the ZIP64 extra field does (ZipInfo).
//  - Or the header leaves it to a descriptor behind the data. Over a buffer a second stream then looks ahead
//    (ZipDataExtent) before the entry is offered, because whoever is offered an entry decides by its sizes. On a stream
//    nobody can look ahead, and the data is decoded to find out.
//
// Wherever the end is known the walk stands there afterwards, whatever unpacking made of the data, so that one damaged
// entry costs that entry only. Where it is not, or when the header itself is no good, the walk is taken up once, at the
// next local header that a search finds. Every way in which it ends too early leaves a line for the host, and so do
// entries that the directory counts and the walk did not meet.
#include <algorithm>
#include <array>
#include <climits>
#include <span>
#include <string>
#include <utility>

#include "EntryStreams.h"
#include "IOUtils.h"
#include "io/BufferBaseStreams.h"
#include "unarchiver/ScanBudget.h"
#include "util/Diag.h"
#include "zip/DeflateDecompressor.h"
#include "zip/DescriptorFinder.h"
#include "zip/ZipDataExtent.h"
#include "zip/ZipMethodName.h"
#include "zip/ZipSupport.h"
#include "zip/ZipTroubles.h"
#include "zip/ZipUnarchiver.h"

namespace ZOV_SPACE {
namespace {

constexpr diag::Unit kDiag{kZipUnitName};

constexpr int kMarkerSize = 4;
// A failure that ends the walk for good.
class FinalFailure : public ArchivingException {
public:
    using ArchivingException::ArchivingException;
};

// The signature of the record that follows, 0 where nothing does.
std::uint32_t peekSignature(InputStream& in) {
    std::array<char, kMarkerSize> bytes{};
    IOUtils::peekFull(in, bytes.data(), kMarkerSize);
    return IOUtils::readUInt(bytes.data());
}

// A split archive, also one that fitted one volume in the end, has a marker in front of its first local header.
bool isSplitMarker(std::uint32_t signature) {
    return signature == ZipConstants::SPHSIG || signature == ZipConstants::EXTSIG;
}

int clampedSize(std::int64_t size) { return static_cast<int>(std::min<std::int64_t>(size, INT_MAX)); }

}  // namespace

ZipEntryInfo::~ZipEntryInfo() = default;

ZipArchiveProcessor::~ZipArchiveProcessor() = default;
bool ZipArchiveProcessor::process(const ArchiveEntryInfo*) { return true; }

ZipUnarchiver::ZipUnarchiver(InputStream* in, ArchiveEntryProcessor& entries, DecompressProcessor* decompression,
                             unsigned flags)
    : _in(std::make_unique<PositionInputStream>(in)),
      _entries(entries),
      _decompression(decompression),
      _flags(flags),
      _persists(entries.persists()) {}

ZipUnarchiver::ZipUnarchiver(BufferBase* buffer, ArchiveEntryProcessor& entries, DecompressProcessor* decompression,
                             unsigned flags)
    : _buffer(buffer),
      _bufferStream(std::make_unique<BufferBaseInputStream>(buffer)),
      _in(std::make_unique<PositionInputStream>(_bufferStream.get())),
      _descriptors(std::make_unique<DescriptorFinder>(*buffer)),
      _entries(entries),
      _decompression(decompression),
      _flags(flags),
      _persists(entries.persists()) {}

ZipUnarchiver::~ZipUnarchiver() = default;

bool ZipUnarchiver::checkFormat(InputStream& in) {
    std::array<char, 2 * kMarkerSize> bytes{};
    IOUtils::peekFull(in, bytes.data(), static_cast<int>(bytes.size()));
    const std::uint32_t first = IOUtils::readUInt(bytes.data());
    return first == ZipConstants::LOCSIG ||
           (isSplitMarker(first) && IOUtils::readUInt(bytes.data() + kMarkerSize) == ZipConstants::LOCSIG);
}

void ZipUnarchiver::start() {
    _entries.beginUnarchiving();
    skipSplitMarker();
    if (_persists) {
        walkOn();
    } else if (!succeeds(&ZipUnarchiver::walk)) {
        restart();
    }
}

// From one header that can be found to the next. No search begins before the end of the last one.
void ZipUnarchiver::walkOn() {
    do {
        succeeds(&ZipUnarchiver::walk);
        _resumeAt = std::max(_resumeAt, _headerStart + 1);
    } while (moveToHeader(_resumeAt));
    if (_buffer) succeeds(&ZipUnarchiver::readDirectoriesFromEnd);
    tellOfCoverage();
    endWalk();
}

bool ZipUnarchiver::succeeds(void (ZipUnarchiver::*part)()) {
    try {
        (this->*part)();
        return true;
    } catch (const FinalFailure&) {
        throw;
    } catch (const OutOfBudgetException&) {
        throw;
    } catch (ArchivingException& failure) {
        kDiag.at().err("Zip entry passed over: %s", failure.toString());
        tell(zipTroubles::of(failure.getMessage()), failure.getMessage());
        return false;
    }
}

void ZipUnarchiver::restart() {
    if (moveToHeader(_headerStart + kMarkerSize) && succeeds(&ZipUnarchiver::walk)) return;
    kZipUnit.raise<ArchivingException>("failed to restart zip unarchiving");
}

// To the next local header from `start` on. False when none can be found.
bool ZipUnarchiver::moveToHeader(std::int64_t start) {
    const long next = _buffer && start < LONG_MAX ? findLocalHeader(*_buffer, static_cast<long>(start)) : -1;
    if (next != -1) moveTo(next);
    return next != -1;
}

void ZipUnarchiver::moveTo(long position) {
    _bufferStream = std::make_unique<BufferBaseInputStream>(_buffer, position);
    _in = std::make_unique<PositionInputStream>(_bufferStream.get(), position);
}

void ZipUnarchiver::skipSplitMarker() {
    const std::uint32_t first = peekSignature(*_in);
    _isSplit = first == ZipConstants::EXTSIG;
    if (isSplitMarker(first)) _in->skip(kMarkerSize);
}

void ZipUnarchiver::walk() {
    while (processNext()) {
    }
    _persists ? readDirectory() : finish();
}

bool ZipUnarchiver::readHeader() {
    _headerStart = _in->position();
    _in->mark(ZipConstants::LOCHDR);
    ++_membersMet;  // Also one that cannot be read.
    _coverage.meet(_headerStart);
    if (!_info.read(*_in, false, _persists)) {
        --_membersMet;
        _coverage.takeBack();
        _in->reset();
        return false;
    }
    _dataStart = _in->position();
    _inEntry = true;
    _directoryRead = false;
    return true;
}

// One entry. False when no local header follows.
bool ZipUnarchiver::processNext() {
    _inEntry = false;
    if (!readHeader()) return false;
    ZipDataExtent extent;
    findExtent(extent);
    if (extent.known && extent.failure.empty() && !isCut(extent)) {
        _resumeAt = _dataStart + extent.packedSize;
        if (!_info.isEncrypted()) _coverage.describe(readingOf(extent));
    }
    if (_info.isEncrypted()) {
        passOverEncrypted(extent);
        return true;
    }
    ZipEntryInfo entry;
    fill(entry, extent);
    int action = kActionSkip;
    LookAheadCost cost(extent.inflated);
    const std::unique_ptr<OutputStream> out = _entries.processEntry(&entry, action);
    if (action == kActionAbort) kZipUnit.raise<FinalFailure>("Archiving aborted");
    if (_info.hasDataDescriptor() || _info.compressedSize > 0) {
        const std::int64_t end = _in->position() + extent.packedSize;
        cost.settle(moveData(entry, extent, action, out.get()));
        if (!extent.failure.empty()) kZipUnit.raise<ArchivingException>(extent.failure);
        if (extent.known) _in->skipTo(end);
    }
    if (isCut(extent)) tell(ArchiveTrouble::truncated, zipTroubles::kCut);
    if (_info.hasDataDescriptor()) {
        takeDescriptor(extent);
        entry.compressedSize = _info.compressedSize;
        entry.uncompressedSize = _info.uncompressedSize;
        entry.checkSum = _info.checkSum;
    }
    if (out) {
        out->flush();
        out->close();
        _entries.endEntry(entry, *out);
    }
    return true;
}

void ZipUnarchiver::passOverEncrypted(const ZipDataExtent& extent) {
    tell(ArchiveTrouble::encrypted, zipTroubles::kEncrypted);
    if (!extent.failure.empty()) kZipUnit.raise<ArchivingException>(extent.failure);
    if (isCut(extent)) tell(ArchiveTrouble::truncated, zipTroubles::kCut);
    if (extent.known) _in->skipTo(_dataStart + extent.packedSize);
    if (_info.hasDataDescriptor()) _info.readDataDescriptor(*_in);
}

void ZipUnarchiver::takeDescriptor(const ZipDataExtent& extent) {
    if (!_info.readDataDescriptor(*_in)) {
        tell(ArchiveTrouble::damaged, "missing data descriptor");
    } else if (extent.known && (_info.compressedSize != static_cast<int>(extent.packedSize) ||
                                _info.uncompressedSize != static_cast<int>(extent.unpackedSize))) {
        tell(ArchiveTrouble::damaged, "the data descriptor contradicts the data");
    }
}

// Where the entry's data ends, as far as that can be known before it is unpacked.
void ZipUnarchiver::findExtent(ZipDataExtent& extent) const {
    if (!_info.hasDataDescriptor()) {
        extent.known = true;
        extent.packedSize = std::max(_info.compressedSize, 0);
        extent.unpackedSize = _info.uncompressedSize;
    } else if (_buffer) {
        const auto start = static_cast<long>(_in->position());
        const bool isForeign = _info.isEncrypted();
        if (!isForeign && _info.method == ZipConstants::DEFLATED) {
            extent = findDeflatedExtent(*_buffer, start, *_descriptors);
        } else if (!isForeign && _info.method == ZipConstants::STORED) {
            extent = findStoredExtent(*_buffer, start);
        } else {
            extent = findForeignExtent(*_buffer, start);
        }
    }
}

void ZipUnarchiver::fill(ZipEntryInfo& entry, const ZipDataExtent& extent) const {
    const bool measured = _info.hasDataDescriptor() && extent.known;
    entry.name = _info.name;
    entry.compressedSize = measured ? clampedSize(extent.packedSize) : _info.compressedSize;
    entry.uncompressedSize = measured ? clampedSize(extent.unpackedSize) : _info.uncompressedSize;
    entry.checkSum = measured ? extent.checkSum : _info.checkSum;
    entry.time = _info.time;
    entry.method = zipMethodName(static_cast<unsigned>(_info.method));
    entry.algorithm = kAlgorithmUnknown;
    if (_info.method == ZipConstants::STORED) entry.algorithm = kAlgorithmStored;
    if (_info.method == ZipConstants::DEFLATED) entry.algorithm = kAlgorithmDeflate;
}

// Carries out the action. Returns how many bytes somebody took of what the data unpacks to.
std::int64_t ZipUnarchiver::moveData(const ZipEntryInfo& entry, const ZipDataExtent& extent, int action,
                                     OutputStream* out) {
    const bool unpacks = out && action == kActionDecompress;
    TakenOutputStream taking(out);
    try {
        if (unpacks) {
            unpack(entry, extent, taking);
            tellOfSize(extent, taking.taken());
        } else if (out && action == kActionCopy) {
            copyStored(extent, taking);
        } else {
            passOver(extent);
        }
    } catch (const UnarchiveRatioExceed&) {
        // The entry is full; the walk goes on behind it.
    } catch (IOException& failure) {
        kZipUnit.raise<ArchivingException>(failure.getMessage());
    } catch (CompressionException& failure) {
        const bool isKnown = !extent.failure.empty();  // It is raised once what was taken has been settled.
        if (!isKnown) kZipUnit.raise<ArchivingException>(failure.getMessage());
    }
    return unpacks ? taking.taken() : 0;
}

void ZipUnarchiver::unpack(const ZipEntryInfo& entry, const ZipDataExtent& extent, OutputStream& out) {
    switch (entry.algorithm) {  // Which the processor may have changed.
        case kAlgorithmStored:
            return copyStored(extent, out);
        case kAlgorithmDeflate:
            return unpackDeflated(extent, out);
        case kAlgorithmShrink:
            kZipUnit.raise<ArchivingException>("SHRINK algorithm unimplemented");
        case kAlgorithmImplode:
            kZipUnit.raise<ArchivingException>("IMPLODE algorithm unimplemented");
        default:
            kZipUnit.raise<ArchivingException>("Unknown algorithm: " + std::to_string(_info.method) + " in zip");
    }
}

// The bytes as they are in the archive. Of a stream whose sizes are unknown, as many as the last known size says.
void ZipUnarchiver::copyStored(const ZipDataExtent& extent, OutputStream& out) {
    std::int64_t left = extent.known ? extent.packedSize : _info.compressedSize;
    while (left > 0) {
        const std::span<char> space = out.lendSpace();
        const auto wanted = std::min<std::int64_t>(static_cast<std::int64_t>(space.size()), left);
        if (wanted == 0) break;
        const int count = _in->read(space.data(), clampedSize(wanted));
        if (count < 1) return;
        out.commitSpace(count);
        left -= count;
    }
    IOUtils::readAndWrite(*_in, out, static_cast<long>(left));
}

void ZipUnarchiver::unpackDeflated(const ZipDataExtent& extent, OutputStream& out) {
    if (extent.hasContent && !_decompression) {
        extent.writeContent(out);
        return;
    }
    if (!extent.known) {
        CutOffOutputStream cutOff(&out, _decompression);  // The end shows only once all has been inflated.
        DeflateDecompressor(true, nullptr).decompress(*_in, DeflateDecompressor::kUnknownSize, cutOff);
        return;
    }
    // Where the end is not known for sure, damaged data is read as far as it goes.
    const bool isSound = extent.failure.empty();
    const std::uint32_t checkSum = _info.hasDataDescriptor() ? extent.checkSum : _info.checkSum;
    const InflatedAs announced{static_cast<std::uint32_t>(extent.unpackedSize), checkSum};
    const std::int64_t unused =
        DeflateDecompressor(true, _decompression)
            .decompress(*_in, isSound ? extent.packedSize : DeflateDecompressor::kUnknownSize, out, announced);
    if (unused > 0) tell(ArchiveTrouble::damaged, zipTroubles::left(unused));
}

// The data of an entry whose end is not known has to be decoded.
void ZipUnarchiver::passOver(const ZipDataExtent& extent) {
    if (extent.known) return;
    if (_info.method == ZipConstants::DEFLATED) {
        NullOutputStream nothing;
        DeflateDecompressor(true, nullptr).decompress(*_in, DeflateDecompressor::kUnknownSize, nothing);
    } else {
        _in->skip(std::max(_info.compressedSize, 0));
    }
}

void ZipUnarchiver::finish() {
    if (!startsDirectory(peekSignature(*_in))) {
        kDiag.at().err("Zip walk ended behind <%s>: neither an entry nor the directory follows", _info.name.c_str());
    }
    readDirectory();
    tellOfMissedMembers();
    tellOfCoverage();
    endWalk();
}

void ZipUnarchiver::endWalk() {
    ZipEntryInfo last;
    int action = kActionSkip;
    _entries.processEntry(&last, action);
    _entries.endUnarchiving();
    _entries.releaseSession();
}

// What follows the entries. Only a walk that persists can look further on for another entry or the directory.
void ZipUnarchiver::readDirectory() {
    const std::uint32_t signature = peekSignature(*_in);
    _resumeAt = _in->position();
    if (signature == kArchiveExtraData) tell(ArchiveTrouble::encrypted, "the directory is encrypted");
    const bool isHeader = signature == ZipConstants::LOCSIG;
    if (isHeader) tell(ArchiveTrouble::truncated, "the archive ends inside an entry's header");
    const bool isAtEnd = _buffer && _resumeAt >= _buffer->getSize();
    const bool isGap = !startsDirectory(signature) && !isHeader && !isAtEnd;
    _metGap = _metGap || isGap;
    if (!isGap || !_persists) readRecords(_resumeAt);
}

// Readers who begin at the end find the directory by the end record, and may find another one than the walk did.
void ZipUnarchiver::readDirectoriesFromEnd() {
    _inEntry = false;
    if (!readEndFromBuffer()) return;
    const ZipEndCentralDir end = _info.end;
    _coverage.meetEnd(end);
    for (const ZipEndCentralDir::Place& place : end.directoryPlaces(*_buffer, _endPosition)) {
        if (place.start < 0 || (place.start == _comparedStart && place.start - place.offset == _comparedShift))
            continue;
        moveTo(static_cast<long>(place.start));
        if (peekSignature(*_in) != ZipConstants::CENSIG) continue;
        readDirectoryEntries();
        compare(place.start, place.start - place.offset, &end);
    }
    if (_directoryRead) return;
    _coverage.beginDirectory();
    compare(_endPosition, 0, &end);
}

// The directory and the end record, as far as they follow.
void ZipUnarchiver::readRecords(std::int64_t start) {
    constexpr std::uint32_t kElsewhere = 0xFFFFFFFF;
    readDirectoryEntries();
    _resumeAt = _in->position();
    const bool endFollows = _info.end.read(*_in);
    if (endFollows) _resumeAt = _in->position();
    const bool hasEnd = endFollows || (_buffer && readEndFromBuffer());
    if (hasEnd) _coverage.meetEnd(_info.end);
    const std::int64_t shift =
        hasEnd && _info.end.directoryOffset != kElsewhere ? start - std::int64_t{_info.end.directoryOffset} : 0;
    compare(start, shift, hasEnd ? &_info.end : nullptr);
}

void ZipUnarchiver::readDirectoryEntries() {
    _coverage.beginDirectory();
    do {
        if (_persists) _info.centralDirs.clear();
        _info.readCentralDirs(*_in, static_cast<int>(_flags - 1));
        for (const auto& entry : _info.centralDirs) _coverage.list(*entry);
    } while (_persists && _info.centralDirs.size() == ZipInfo::kMostCentralDirs);
}

void ZipUnarchiver::compare(std::int64_t start, std::int64_t shift, const ZipEndCentralDir* end) {
    _coverage.compare(shift, end, _buffer);
    _directoryRead = true;
    _comparedStart = start;
    _comparedShift = shift;
}

// What stands between the walk and the end record may be unknown; that members are missing can be told all the same.
bool ZipUnarchiver::readEndFromBuffer() {
    if (_endPosition < 0) _endPosition = ZipEndCentralDir::findPos(*_buffer);
    BufferBaseInputStream in(_buffer, _endPosition);
    return _endPosition > 0 && _info.end.read(in);
}

void ZipUnarchiver::tellOfMissedMembers() const {
    constexpr unsigned kCountedElsewhere = 0xFFFF;  // By ZIP64.
    std::int64_t counted = _info.end.entryCount == kCountedElsewhere ? 0 : _info.end.entryCount;
    counted = std::max(counted, static_cast<std::int64_t>(_info.centralDirs.size()));
    if (counted <= _membersMet) return;
    kDiag.at().err("Zip directory counts %lld entries, of which %lld were not met", static_cast<long long>(counted),
                   static_cast<long long>(counted - _membersMet));
}

void ZipUnarchiver::tellOfCoverage() const {
    if (_metGap && !(_persists && _coverage.isComplete())) {
        tell(ArchiveTrouble::damaged, "neither an entry nor the directory follows an entry");
    }
    if (_coverage.missed() > 0) {
        tell(ArchiveTrouble::damaged, zipTroubles::missed(_coverage.missed()));
    }
    if (_coverage.contradicted() > 0) {
        tell(ArchiveTrouble::damaged,
             std::to_string(_coverage.contradicted()) + " entries are not what the directory says");
    }
    if (_coverage.isTooLong()) tell(ArchiveTrouble::spent, "there are more entries than can be compared");
    if (_coverage.spansVolumes() || (_isSplit && !_coverage.hasEnd())) {
        tell(ArchiveTrouble::otherVolume, "the archive spans several volumes");
    } else if (!_coverage.hasEnd()) {
        tell(ArchiveTrouble::truncated, "the archive ends without an end record");
    }
}

void ZipUnarchiver::tellOfSize(const ZipDataExtent& extent, std::int64_t unpackedBytes) const {
    const auto announced = static_cast<std::uint32_t>(extent.unpackedSize);
    if (_decompression || !extent.known || isCut(extent) || unpackedBytes == announced) return;
    tell(ArchiveTrouble::damaged, zipTroubles::otherSize(announced, unpackedBytes));
}

// Whether the source ends before the data does.
bool ZipUnarchiver::isCut(const ZipDataExtent& extent) const {
    const std::int64_t packedBytes = readingOf(extent).packedSize;
    return _buffer && extent.known && _dataStart + packedBytes > _buffer->getSize();
}

ZipCoverage::Reading ZipUnarchiver::readingOf(const ZipDataExtent& extent) const {
    const bool measured = _info.hasDataDescriptor();
    return {measured ? static_cast<std::uint32_t>(extent.packedSize) : static_cast<std::uint32_t>(_info.compressedSize),
            static_cast<std::uint32_t>(extent.unpackedSize), _info.method};
}

void ZipUnarchiver::tell(ArchiveTrouble what, const std::string& text) const {
    _entries.trouble(what, _inEntry ? &_info.name : nullptr, text);
}

}  // namespace ZOV_SPACE
