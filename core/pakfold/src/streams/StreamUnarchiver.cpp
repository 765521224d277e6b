#include "streams/StreamUnarchiver.h"

#include <algorithm>
#include <string_view>

#include "OfferedEntry.h"
#include "rar/deep/RarWithin.h"
#include "streams/StreamTroubles.h"
#include "unarchiver/ScanBudget.h"
#include "zip/deep/ZipWithin.h"

namespace ZOV_SPACE {
namespace {

constexpr const char* kUnnamed = "data";

struct Suffix {
    std::string_view packed, unpacked;
};
constexpr Suffix kSuffixes[] = {{".gz", ""},      {".bz2", ""},     {".xz", ""},       {".lzma", ""},
                                {".zst", ""},     {".tgz", ".tar"}, {".tbz", ".tar"},  {".tbz2", ".tar"},
                                {".txz", ".tar"}, {".tlz", ".tar"}, {".tzst", ".tar"}, {".svgz", ".svg"},
                                {".emz", ".emf"}, {".wmz", ".wmf"}};

// As unpackers call what they make of a file of this name.
std::string unpackedName(std::string_view name) {
    name.remove_prefix(std::min(name.find_last_of('/') + 1, name.size()));
    for (const Suffix& suffix : kSuffixes) {
        if (!name.ends_with(suffix.packed) || name.size() == suffix.packed.size()) continue;
        return std::string(name.substr(0, name.size() - suffix.packed.size())).append(suffix.unpacked);
    }
    return kUnnamed;
}

}  // namespace

StreamUnarchiver::StreamUnarchiver(BufferBase* buffer, ArchiveEntryProcessor& entries, CoveredRanges& covered,
                                   std::unique_ptr<StreamDecoder> decoder)
    : _entries(entries), _covered(covered), _bytes(*buffer), _decoder(std::move(decoder)) {}

void StreamUnarchiver::start() {
    _entries.beginUnarchiving();
    ArchiveEntryInfo entry;
    entry.name = contentName();
    entry.algorithm = kAlgorithmOther;
    entry.method = _decoder->method();
    entry.compressedSize = entrySize(_bytes.size());
    entry.hasCheckSum = false;
    OfferedEntry offer(_entries, entry);
    if (offer.isTaken()) {
        offer.fill([this](OutputStream& out) { decode(out); });
        if (!_isSound) offer.tell(ArchiveTrouble::checkSum, streamTroubles::kWrongSum);
    }
    _entries.endUnarchiving();
    _entries.releaseSession();
}

std::string StreamUnarchiver::contentName() {
    const std::string own = _decoder->contentName(_bytes);
    return own.empty() ? unpackedName(_entries.archiveName()) : own;
}

void StreamUnarchiver::decode(OutputStream& out) {
    const std::int64_t cost = _decoder->costOfBegin();
    DecodedOutput decoded(out);
    while (_decoder->isAt(_bytes, _end)) {
        const std::int64_t start = _end, madeBefore = decoded.made();
        _end = decodeOne(start, decoded);
        const std::int64_t moved = _end - start + decoded.made() - madeBefore;
        if (moved < cost) ScanBudget::chargeDiscardedBytes(cost - moved);
        _end = behindZeros(_end);
    }
    tellOfRest();
}

// Returns where the stream ends.
std::int64_t StreamUnarchiver::decodeOne(std::int64_t position, DecodedOutput& decoded) {
    position = _decoder->begin(_bytes, position);
    const std::int64_t start = position, madeBefore = decoded.made();
    std::span<const char> input;
    for (bool goesOn = true; goesOn;) {
        if (input.empty()) input = _bytes.from(position);
        const std::size_t given = input.size();
        goesOn = decoded.take(*_decoder, input);
        position += static_cast<std::int64_t>(given - input.size());
        ScanBudget::worked(0);
    }
    // What is skipped, or stands in a head, can be an archive that nothing else shows.
    if (decoded.made() > madeBefore) _covered.add(start, position);
    const StreamDecoder::End end = _decoder->end(_bytes, position);
    _isSound = _isSound && end.isSound;
    return end.position;
}

std::int64_t StreamUnarchiver::behindZeros(std::int64_t position) {
    while (true) {
        const std::span<const char> piece = _bytes.from(position);
        const auto other = std::find_if(piece.begin(), piece.end(), [](char byte) { return byte != 0; });
        position += other - piece.begin();
        if (piece.empty() || other != piece.end()) return position;
        ScanBudget::worked(0);
    }
}

// Other archives behind the data are walked as such.
void StreamUnarchiver::tellOfRest() {
    const std::int64_t rest = _bytes.size() - _end;
    if (rest <= 0) return;
    const ZipFound zip = findZipWithin(_bytes.buffer());
    const auto rar = findRarWithin(_bytes.buffer());
    if ((zip.what != ZipWithin::nothing && zip.begin >= _end) || (rar && *rar >= _end)) return;
    _entries.trouble(ArchiveTrouble::damaged, nullptr,
                     std::to_string(rest) + " bytes behind the compressed data are no part of it");
}

bool beginsAsStream(ProbedContent& content, bool isHeld, std::string_view name) {
    if (isHeld) return hasForeignFormat(content, name);
    const char* const format = content.foreignFormat();
    return format && format == name;
}

}  // namespace ZOV_SPACE
