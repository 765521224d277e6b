#include "rar/deep/RarVolumes.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <span>

#include "ByteOrder.h"
#include "Raise.h"
#include "unarchiver/ScanBudget.h"
#include "utils/Crc.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"../../core/pakfold/src/unarchiver/Rar"};

// Where fields stand in a header.
constexpr std::size_t kTypeAt = 2, kFlagsAt = 3, kPackedAt = 7, kCheckSumAt = 16, kPackedHighAt = 32;

bool isVolume(const RarHeader& archive) {
    if (!archive.is(RarBlock::kArchive) || !archive.isSound) return false;
    const unsigned flags = archive.block->h_flags;
    return (flags & RarArchiveBlock::kVolume) && !(flags & RarArchiveBlock::kEncryptedHeaders);
}

}  // namespace

RarVolumes::~RarVolumes() = default;

std::unique_ptr<RarVolumes> RarVolumes::join(BufferBase& first, const ArchiveMark& mark,
                                             ArchiveEntryProcessor& entries) {
    std::unique_ptr<RarVolumes> whole(new RarVolumes(first, entries));
    if (!whole->volume(2)) return nullptr;
    ArchiveMark begin = mark;
    for (int number = 1; number <= kMost; ++number) {
        const Added added = whole->addVolume(number, begin);
        if (added == Added::nothing || whole->_total > std::numeric_limits<std::int32_t>::max()) return nullptr;
        if (added == Added::last) {
            whole->_setSize(static_cast<long>(whole->_total));
            return number == 1 ? nullptr : std::move(whole);
        }
        begin.position = 0;
    }
    return nullptr;
}

// Null when it cannot be had.
BufferBase* RarVolumes::volume(int number) {
    if (number == 1) return &_first;
    if (number != _openNumber) {
        _open = _entries.volume(number);
        _openNumber = number;
    }
    return _open.get();
}

RarVolumes::Added RarVolumes::addVolume(int number, const ArchiveMark& mark) {
    BufferBase* const buffer = volume(number);
    if (!buffer) return Added::nothing;
    ContentBytes bytes(*buffer);
    RarHeaders headers(bytes);
    const RarHeader begin = headers.read(mark.position), archive = headers.read(mark.end());
    const bool begins = begin.is(RarBlock::kMarker) && begin.isSound && isVolume(archive);
    if (!begins || archive.dataStart > bytes.size()) return Added::nothing;
    if (number == 1) {
        addOwn(bytes, begin.start, begin.dataStart);
        changeHeader(addOwn(bytes, archive.start, archive.dataStart), RarArchiveBlock::kVolume);
    }
    return addBlocks(number, bytes, archive.end(bytes.size()));
}

RarVolumes::Added RarVolumes::addBlocks(int number, ContentBytes& bytes, std::int64_t position) {
    RarHeaders headers(bytes);
    while (position < bytes.size()) {
        ScanBudget::worked(0);
        const RarHeader header = headers.read(position);
        if (!header.isWhole || header.dataSize() > bytes.size() - header.dataStart) return Added::nothing;
        if (header.is(RarBlock::kEnd)) return endedBy(header);
        const bool isFile = header.is(RarBlock::kFile);
        if (isFile && !addEntry(number, bytes, header)) return Added::nothing;
        position = header.end(bytes.size());
        if (number == 1) _endInFirst = position;
        if (isFile && _unfinished) return Added::more;
    }
    // Old volumes have no end block, and one may stop where an entry does.
    return volume(number + 1) ? Added::more : Added::last;
}

RarVolumes::Added RarVolumes::endedBy(const RarHeader& end) const {
    if (!end.isSound) return Added::nothing;
    if (end.block->h_flags & RarReservedBlock::kNextVolume) return Added::more;
    return _unfinished ? Added::nothing : Added::last;
}

// False for one that does not go on with what is unfinished, or goes on with something else.
bool RarVolumes::addEntry(int number, ContentBytes& bytes, const RarHeader& header) {
    const auto& file = static_cast<const RarFileBlock&>(*header.block);
    const bool isExpected = header.isSound && file.isSplitBefore() == _unfinished.has_value();
    if (!isExpected || _pieces.size() >= kMostPieces) return false;
    if (!_unfinished && !file.isSplitAfter()) {
        addPiece(number, header.start, header.end(bytes.size()) - header.start);
        return true;
    }
    if (!_unfinished) {
        _unfinished = {addOwn(bytes, header.start, header.dataStart), file.rawName(), 0};
    } else if (_unfinished->name != file.rawName()) {
        return false;
    }
    _unfinished->packedSize += header.dataSize();
    addPiece(number, header.dataStart, header.dataSize());
    if (!file.isSplitAfter()) finishEntry(file);
    return true;
}

// Only the last part has the check-sum of all.
void RarVolumes::finishEntry(const RarFileBlock& last) {
    char* const header = &_own[_unfinished->header.place];
    const bool isLarge = loadU16(header + kFlagsAt) & RarFileBlock::kLargeSizes;
    storeLittleEndian(header + kPackedAt, static_cast<std::uint32_t>(_unfinished->packedSize));
    if (isLarge) storeLittleEndian(header + kPackedHighAt, static_cast<std::uint32_t>(_unfinished->packedSize >> 32));
    storeLittleEndian(header + kCheckSumAt, last.file_crc);
    changeHeader(_unfinished->header, RarFileBlock::kSplitAfter);
    _unfinished.reset();
}

RarVolumes::Own RarVolumes::addOwn(ContentBytes& bytes, std::int64_t start, std::int64_t end) {
    const std::size_t place = _own.size();
    const std::span<const char> there = bytes.at(start, static_cast<std::size_t>(end - start));
    _own.append(there.data(), there.size());
    addPiece(0, static_cast<std::int64_t>(place), static_cast<std::int64_t>(there.size()));
    return {place, there.size()};
}

void RarVolumes::addPiece(int volume, std::int64_t position, std::int64_t size) {
    if (size <= 0) return;
    Piece* const last = _pieces.empty() ? nullptr : &_pieces.back();
    if (last && last->volume == volume && last->position + last->size == position) {
        last->size += size;
    } else {
        _pieces.push_back({_total, volume, position, size});
    }
    _total += size;
}

void RarVolumes::changeHeader(const Own& own, unsigned flagsToClear) {
    char* const header = &_own[own.place];
    const unsigned flags = loadU16(header + kFlagsAt) & ~flagsToClear;
    storeLittleEndian(header + kFlagsAt, static_cast<std::uint16_t>(flags));
    const std::uint32_t sum = Iso3309Crc().add(header + kTypeAt, static_cast<unsigned>(own.size - kTypeAt));
    storeLittleEndian(header, static_cast<std::uint16_t>(sum & 0xFFFF));
}

int RarVolumes::read(long pos) {
    char byte;
    return read(pos, &byte, 1) == 1 ? static_cast<unsigned char>(byte) : -1;
}

int RarVolumes::read(long pos, char* buf, int n) {
    if (!buf || n < 1) return 0;
    if (pos < 0) kUnit.raise<IOException>("Index out of bound");
    const auto startsBehind = [](std::int64_t position, const Piece& piece) { return position < piece.start; };
    auto piece = std::upper_bound(_pieces.begin(), _pieces.end(), std::int64_t{pos}, startsBehind);
    const int wanted = static_cast<int>(std::clamp<std::int64_t>(_total - pos, 0, n));
    for (int done = 0; done < wanted; ++piece) {
        const Piece& from = *std::prev(piece);
        const std::int64_t skipped = pos + done - from.start;
        const int count = static_cast<int>(std::min<std::int64_t>(wanted - done, from.size - skipped));
        readPiece(from, skipped, buf + done, count);
        done += count;
    }
    return wanted;
}

void RarVolumes::readPiece(const Piece& from, std::int64_t skipped, char* buf, int count) {
    const std::int64_t position = from.position + skipped;
    if (from.volume == 0) {
        _own.copy(buf, static_cast<std::size_t>(count), static_cast<std::size_t>(position));
        return;
    }
    BufferBase* const source = volume(from.volume);
    const int read = source ? source->read(static_cast<long>(position), buf, count) : 0;
    if (read != count) kUnit.raise<IOException>("a volume could not be read");
}

}  // namespace ZOV_SPACE
