#include "tar/TarUnarchiver.h"

#include <algorithm>

#include "OfferedEntry.h"
#include "unarchiver/DeepFormats.h"
#include "unarchiver/ForeignFormat.h"
#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {
namespace {

constexpr std::int64_t kRecord = TarHeader::kRecord;

constexpr char kLongName = 'L', kLongLink = 'K', kPax = 'x', kOldPax = 'X', kPaxOfAll = 'g', kSparse = 'S',
               kContinued = 'M', kFolder = '5';

bool isExtension(char type) {
    return type == kLongName || type == kLongLink || type == kPax || type == kOldPax || type == kPaxOfAll;
}

}  // namespace

// What an entry's file is made of.
struct TarUnarchiver::Content {
    std::int64_t start;     // Of the data.
    std::int64_t size;      // Of the data, as it is announced.
    std::int64_t fileSize;  // With holes.
    bool isSparse = false;
    TarSparseMap map = {};
};

TarUnarchiver::TarUnarchiver(BufferBase* buffer, ArchiveEntryProcessor& entries, CoveredRanges& covered)
    : _entries(entries), _covered(covered), _bytes(*buffer) {}

bool TarUnarchiver::isIn(ProbedContent& probed, bool isHeld) {
    constexpr std::size_t kSearched = 20;  // Records, which is what writers put out at once.
    if (hasForeignFormat(probed, "tar")) return true;
    ContentBytes content(probed.bytes());
    const std::span<const char> start = content.at(0, (isHeld ? 1 : kSearched) * TarHeader::kRecord);
    if (start.size() >= TarHeader::kRecord && TarHeader::isMarked(start.first(TarHeader::kRecord))) return true;
    for (std::span<const char> rest = start; rest.size() >= TarHeader::kRecord;) {
        if (TarHeader::read(rest.first(TarHeader::kRecord))) return true;
        rest = rest.subspan(TarHeader::kRecord);
    }
    return false;
}

void TarUnarchiver::start() {
    _entries.beginUnarchiving();
    walk();
    _entries.endUnarchiving();
    _entries.releaseSession();
}

void TarUnarchiver::walk() {
    std::int64_t position = 0;
    for (; position <= _bytes.size() - kRecord; ScanBudget::worked(0)) {
        const std::span<const char> record = _bytes.at(position, TarHeader::kRecord);
        if (record.size() < TarHeader::kRecord) return;  // The buffer remembers that it could not be read.
        position += kRecord;
        auto header = TarHeader::read(record);
        if (!header) {
            meetOther(record);
            continue;
        }
        _isEnded = _isLost = false;
        position = isExtension(header->type) ? readExtension(*header, position) : take(std::move(*header), position);
    }
    const std::span<const char> rest = _bytes.at(position, TarHeader::kRecord);
    if (!_isEnded && !TarHeader::isZero(rest)) tell(ArchiveTrouble::truncated, "the archive ends inside a header");
}

// What stands behind the end and is not meant as a header is no reader's business.
void TarUnarchiver::meetOther(std::span<const char> record) {
    if (TarHeader::isZero(record)) {
        _isEnded = true;
        _extensions = {};
    } else if (!_isLost && (!_isEnded || TarHeader::isMarked(record))) {
        _isLost = true;
        tell(ArchiveTrouble::damaged, "a header is damaged, or missing");
    }
}

// Returns where the next header is to be.
std::int64_t TarUnarchiver::take(TarHeader header, std::int64_t dataStart) {
    header.size = _extensions.size.value_or(_sizeOfAll.value_or(header.size));
    if (_extensions.name) header.name = *std::move(_extensions.name);
    if (header.type == kSparse) dataStart = readSparseRecords(dataStart);
    if (header.isWithoutData() && !hasData(header, dataStart)) header.size = 0;
    const std::int64_t behind = behindData(dataStart, header.size);
    offer(header, contentOf(header, dataStart));
    _extensions = {};
    return behind;
}

std::int64_t TarUnarchiver::behindData(std::int64_t dataStart, std::int64_t size) const {
    if (size > _bytes.size() - dataStart) return _bytes.size();
    return dataStart + (size + kRecord - 1) / kRecord * kRecord;
}

std::int64_t TarUnarchiver::readExtension(const TarHeader& header, std::int64_t dataStart) {
    constexpr std::int64_t kMost = TarExtensions::kMostBytes;
    const std::int64_t behind = behindData(dataStart, header.size);
    if (header.size > _bytes.size() - dataStart) tell(ArchiveTrouble::truncated, "the archive ends inside a header");
    if (header.size > kMost) tell(ArchiveTrouble::spent, "a header is too long");
    const std::span<const char> data =
        _bytes.at(dataStart, static_cast<std::size_t>(std::min<std::int64_t>(header.size, kMost)));
    const std::string_view text(data.data(), data.size());
    TarExtensions ofAll;
    TarExtensions& said = header.type == kPaxOfAll ? ofAll : _extensions;
    if (header.type == kLongName) {
        said.name = std::string(text.substr(0, text.find('\0')));
    } else if (header.type != kLongLink && !said.readPax(text)) {
        tell(ArchiveTrouble::damaged, "a line of a pax header makes no sense");
    }
    if (header.type == kPaxOfAll) _sizeOfAll = ofAll.size;
    return behind;
}

// The map in an old sparse file's header, and in the records behind it. Returns where the data begins.
std::int64_t TarUnarchiver::readSparseRecords(std::int64_t position) {
    constexpr std::size_t kMapInHeader = 386, kHasMore = 482, kRealSize = 483, kHasMoreInRecord = 504, kField = 12;
    constexpr std::int64_t kMostRecords = 4096;
    std::span<const char> record = _bytes.at(position - kRecord, TarHeader::kRecord);
    if (record.size() < TarHeader::kRecord) return position;
    TarSparseMap& map = _extensions.sparseMap.emplace();
    map.addFields(record.subspan(kMapInHeader), TarSparseMap::kInHeader);
    _extensions.sparseSize = TarHeader::number(record.subspan(kRealSize, kField));
    bool hasMore = record[kHasMore] != 0;
    for (std::int64_t count = 0; hasMore; ++count) {
        record = _bytes.at(position, TarHeader::kRecord);
        if (record.size() < TarHeader::kRecord) break;
        if (count < kMostRecords) map.addFields(record, TarSparseMap::kInRecord);
        hasMore = record[kHasMoreInRecord] != 0;
        position += kRecord;
        ScanBudget::worked(0);
    }
    return position;
}

bool TarUnarchiver::isHeaderAt(std::int64_t position) {
    const std::span<const char> record = _bytes.at(position, TarHeader::kRecord);
    return record.size() == TarHeader::kRecord && TarHeader::read(record);
}

bool TarUnarchiver::hasData(const TarHeader& header, std::int64_t dataStart) {
    if (header.size == 0 || isHeaderAt(dataStart)) return false;
    const bool mayBeEnd = TarHeader::isZero(_bytes.at(dataStart, TarHeader::kRecord));
    return !mayBeEnd || isHeaderAt(behindData(dataStart, header.size));
}

TarUnarchiver::Content TarUnarchiver::contentOf(const TarHeader& header, std::int64_t dataStart) {
    Content content{dataStart, header.size, header.size};
    if (_extensions.hasMapInData) {
        const std::int64_t available = std::min(header.size, _bytes.size() - dataStart);
        _extensions.sparseMap = TarSparseMap::readFromData(_bytes, content.start, dataStart + available);
        content.size -= content.start - dataStart;
    }
    if (!_extensions.sparseMap) return content;
    const std::int64_t fileSize = _extensions.sparseSize.value_or(-1);
    content.isSparse = _extensions.sparseMap->fits(fileSize, content.size);
    if (!content.isSparse) {
        tell(ArchiveTrouble::damaged, "the holes of a sparse file make no sense", &header.name);
        return {dataStart, header.size, header.size};
    }
    content.fileSize = fileSize;
    content.map = *std::move(_extensions.sparseMap);
    return content;
}

void TarUnarchiver::offer(const TarHeader& header, const Content& content) {
    BufferBase& buffer = _bytes.buffer();
    const std::int64_t available = std::min(content.size, _bytes.size() - content.start);
    ArchiveEntryInfo entry;
    entry.name = header.name;
    entry.method = content.isSparse ? "sparse" : "stored";
    entry.compressedSize = entrySize(available);
    entry.uncompressedSize = entrySize(content.isSparse ? content.fileSize : available);
    entry.hasCheckSum = false;
    entry.isFolder = header.type == kFolder;
    OfferedEntry offered(_entries, entry);
    if (header.type == kContinued) offered.tell(ArchiveTrouble::otherVolume, "continued from another volume");
    if (available < content.size) offered.tell(ArchiveTrouble::truncated, "the archive ends inside the data");
    if (!offered.isTaken()) return;
    _covered.add(content.start, content.start + available);
    offered.fill([&](OutputStream& out) {
        if (content.isSparse) {
            content.map.expand(buffer, content.start, content.fileSize, out);
        } else {
            copyRange(buffer, content.start, available, out);
        }
    });
}

void TarUnarchiver::tell(ArchiveTrouble what, const std::string& text, const std::string* name) const {
    _entries.trouble(what, name, text);
}

namespace {

[[maybe_unused]] const bool registered = registerDeepFormat(
    {"tar", TarUnarchiver::isIn,
     [](BufferBase* content, ArchiveEntryProcessor& entries, CoveredRanges& covered) -> std::unique_ptr<Unarchiver> {
         return std::make_unique<TarUnarchiver>(content, entries, covered);
     }});

}  // namespace
}  // namespace ZOV_SPACE
