#include "rar/deep/RarDeepUnarchiver.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

#include "Raise.h"
#include "io/BufferBaseStreams.h"
#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"../../core/pakfold/src/unarchiver/Rar"};

}  // namespace

RarDeepUnarchiver::RarDeepUnarchiver(BufferBase* buffer, ArchiveEntryProcessor& entries, CoveredRanges& covered)
    : _entries(entries), _covered(covered), _bytes(*buffer), _headers(_bytes) {}

RarDeepUnarchiver::RarDeepUnarchiver(RarVolumes& volumes, ArchiveEntryProcessor& entries, CoveredRanges& covered)
    : RarDeepUnarchiver(static_cast<BufferBase*>(&volumes), entries, covered) {
    _joins = false;
}

RarDeepUnarchiver::~RarDeepUnarchiver() = default;

void RarDeepUnarchiver::start() {
    try {
        walk();
    } catch (const std::bad_alloc&) {
        kUnit.raise<OutOfMemoryException>("Out of memory");
    }
}

void RarDeepUnarchiver::walk() {
    std::int64_t position = 0;
    while (const auto mark = nextMark(position)) position = std::max(mark->end(), meet(*mark));
}

// In bytes that no member covers.
std::optional<ArchiveMark> RarDeepUnarchiver::nextMark(std::int64_t position) {
    for (position = _covered.endAt(position); position < _bytes.size();) {
        const std::int64_t end = std::min(_covered.nextBehind(position), _bytes.size());
        if (const auto mark = nextArchiveMark(_bytes, kRarMarks, position, end)) return mark;
        position = _covered.endAt(end);
    }
    return std::nullopt;
}

// Returns where the search for marks goes on; 0 where no archive is.
std::int64_t RarDeepUnarchiver::meet(const ArchiveMark& mark) {
    const auto first = _headers.archiveAt(mark);
    if (mark.kind == ArchiveMark::rar5) {
        if (first) tellOfRar5(mark);
        return 0;
    }
    if (!first) {
        if (mark.position == 0) tell(ArchiveTrouble::damaged, "the archive's header is damaged");
        return 0;
    }
    const RarHeader header = _headers.read(*first);
    bool isSolid = false;
    std::int64_t position = *first;
    if (header.is(RarBlock::kArchive)) {
        const auto& archive = static_cast<const RarArchiveBlock&>(*header.block);
        position = header.end(_bytes.size());
        isSolid = archive.isSolid();
        if (archive.h_flags & RarArchiveBlock::kEncryptedHeaders) {
            tell(ArchiveTrouble::encrypted, rarTexts::kEncryptedHeaders);
            return position;
        }
        const auto volumes = archive.isVolume() ? join(mark) : nullptr;
        if (volumes) return walkVolumes(*volumes, mark);
    } else {
        tell(ArchiveTrouble::damaged, "the archive's header is damaged");
    }
    RarEntryReader entries(&_bytes.buffer(), _entries, nullptr, isSolid, true);
    return walkBlocks(entries, position);
}

// Tried once: volumes may be many, and so may be marks.
std::unique_ptr<RarVolumes> RarDeepUnarchiver::join(const ArchiveMark& mark) {
    return std::exchange(_joins, false) ? RarVolumes::join(_bytes.buffer(), mark, _entries) : nullptr;
}

std::int64_t RarDeepUnarchiver::walkVolumes(RarVolumes& volumes, const ArchiveMark& mark) {
    CoveredRanges covered;
    RarDeepUnarchiver(volumes, _entries, covered).walk();
    _covered.add(mark.position, volumes.endInFirst());
    return volumes.endInFirst();
}

// Once; of contents that begin so, those who recognise contents tell.
void RarDeepUnarchiver::tellOfRar5(const ArchiveMark& mark) {
    if (mark.position == 0 || std::exchange(_isRar5Told, true)) return;
    tell(ArchiveTrouble::otherFormat, "the members of RAR 5 are not reached");
}

// Up to the archive's end, or to another one's mark, which is returned.
std::int64_t RarDeepUnarchiver::walkBlocks(RarEntryReader& entries, std::int64_t position) {
    _doubtful = position;
    for (;;) {
        ScanBudget::worked(0);
        RarHeader header = _headers.read(position);
        if (follows(header)) {
            _covered.add(_doubtful, position);
            if (header.is(RarBlock::kMarker)) return position;
            const bool isEnd = header.is(RarBlock::kEnd) && header.isSound;
            position = header.is(RarBlock::kFile) ? takeEntry(entries, header) : takeOther(entries, header);
            if (isEnd) return position;
            continue;
        }
        if (position < _bytes.size()) tellOfGap(header);
        if (_doubtful < position) ScanBudget::chargeDiscardedBytes(position - _doubtful);
        if (!sweep(position)) return position;
        entries.breakChain();
    }
}

// Whether this is the block that follows the one before it.
bool RarDeepUnarchiver::follows(const RarHeader& header) const {
    if (!header.isWhole) return false;
    return header.isSound || (_doubtful >= header.start && !header.is(RarBlock::kMarker));
}

// Returns where the next block should be.
std::int64_t RarDeepUnarchiver::takeEntry(RarEntryReader& entries, RarHeader& header) {
    const std::int64_t end = header.end(_bytes.size());
    auto file = std::unique_ptr<RarFileBlock>(static_cast<RarFileBlock*>(header.block.release()));
    const bool isStored = file->isStored();
    const bool isCut = entries.isCut(header.dataStart, file->packedSize());
    BufferBaseInputStream source(&_bytes.buffer(), static_cast<long>(header.dataStart));
    PositionInputStream in(&source, header.dataStart);
    const bool isHad = entries.take(std::move(file), in) && !isCut;
    if (header.isSound && (isHad || isStored)) {
        _covered.add(header.start, end);
        _doubtful = end;
    } else {
        _doubtful = header.isSound ? header.dataStart : header.start + 1;
    }
    return end;
}

std::int64_t RarDeepUnarchiver::takeOther(RarEntryReader& entries, const RarHeader& header) {
    const RarBlock& block = *header.block;
    const std::int64_t end = header.end(_bytes.size());
    entries.tellOfHeader(block);
    if (entries.isCut(header.dataStart, block.a_size)) tell(ArchiveTrouble::truncated, rarTexts::kCut);
    const bool isChecked = block.h_type < RarBlock::kFirstReserved || block.h_type >= RarBlock::kService;
    _doubtful = header.isSound || !isChecked ? end : header.start + 1;
    return end;
}

void RarDeepUnarchiver::tellOfGap(const RarHeader& header) const {
    const std::int64_t left = _bytes.size() - header.start;
    const bool isCut = header.block && !header.isWhole && header.block->h_size > left;
    if (left < RarBlock::kFewestBytes || isCut) return tell(ArchiveTrouble::truncated, rarTexts::kCutHeader);
    tell(ArchiveTrouble::damaged, rarTexts::kNoBlock);
}

// Moves to the next sound entry. False when there is none before another archive, to which it moves then, or the end.
bool RarDeepUnarchiver::sweep(std::int64_t& position) {
    constexpr std::int64_t kFirstPiece = 256, kLargestPiece = 65536;  // What is found is likely to be near.
    const std::int64_t size = _bytes.size();
    std::int64_t end = 0, piece = kFirstPiece;
    for (position = _covered.endAt(_doubtful); position < size; position = _covered.endAt(end)) {
        end = std::min({position + piece, _covered.nextBehind(position), size});
        piece = std::min(2 * piece, kLargestPiece);
        const auto archive = _headers.nextArchive(position, end);
        const auto entry = _headers.nextEntry(position, archive ? archive->position : end);
        if (entry || archive) {
            position = _doubtful = entry ? *entry : archive->position;
            return entry.has_value();
        }
    }
    return false;
}

}  // namespace ZOV_SPACE
