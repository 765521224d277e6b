// The walk. An archive is a row of blocks, each a header that says how much data follows it, so that what is not known
// can be passed over: marker, archive header, then files and others in any order, up to the first that cannot be read.
// The walk alone decides where the next block begins: whoever takes an entry's data gets a stream that ends with it,
// and what is left of it is skipped.
//
// A solid entry goes on where the one before it stopped, with its window, tables and models. So every compressed entry
// of a solid archive is decoded, wanted or not, into nothing if need be; one whose header is broken, too.
#include "rar/RarUnarchiver.h"

#include <algorithm>
#include <limits>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "EntryStreams.h"
#include "IOUtils.h"
#include "PositionInputStream.h"
#include "Raise.h"
#include "io/BufferBaseStreams.h"
#include "rar/RarBlock.h"
#include "rar/RarDecompressor.h"
#include "unarchiver/ForeignFormat.h"
#include "unarchiver/ScanBudget.h"
#include "util/Diag.h"
#include "zip/ZipEndCentralDir.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"../../core/pakfold/src/unarchiver/Rar"};
constexpr diag::Unit kDiag{"../../core/pakfold/src/unarchiver/Rar"};

constexpr int kCheckMarkLimit = 1024;
constexpr unsigned kMarkerBytes = 7;
constexpr unsigned kFurthestMarker = 524288;
// Sizes above are as good as this one. Where long has 32 bits, skipping by 64-bit sizes takes very many steps.
constexpr std::int64_t kBeyondAnySource = std::int64_t{1} << 32;

constexpr const char* kEncryptedText = "the entry is encrypted";
constexpr const char* kContinuedText = "the entry is continued from the previous volume";
constexpr const char* kCutText = "the archive ends inside the data";
constexpr const char* kCutHeaderText = "the archive ends inside a header";
constexpr const char* kBuildsOnMissingText = "the entry builds on one that could not be decoded";
constexpr const char* kBrokenText = "the check-sum of the header is wrong";

[[noreturn]] void raiseOutOfMemory() { kUnit.raise<OutOfMemoryException>("Out of memory"); }

std::unique_ptr<InputStream> streamOf(BufferBase* buffer) {
    try {
        return std::make_unique<BufferBaseInputStream>(buffer);
    } catch (const std::bad_alloc&) {
        raiseOutOfMemory();
    }
}

int size32(std::int64_t size) {
    constexpr std::int64_t kLargest = std::numeric_limits<std::uint32_t>::max();
    return static_cast<int>(static_cast<std::uint32_t>(std::min(size, kLargest)));
}

// A zero byte and an encoded form may follow the name.
std::string nameOf(const RarFileBlock& file) { return file.rawName().substr(0, file.rawName().find('\0')); }

void describe(const RarFileBlock& file, RarEntryInfo& info) {
    info.algorithm = kAlgorithmRar;
    info.name = nameOf(file);
    info.flags = static_cast<int>(file.attr);
    info.time = file.ftime;
    info.compressedSize = size32(file.packedSize());
    info.uncompressedSize = size32(file.unpackedSize());
    info.checkSum = file.file_crc;
}

// A sink that takes no more ends the entry, not the walk; it keeps what it has.
template <class Call>
void untilSinkIsFull(Call call) {
    try {
        call();
    } catch (const UnarchiveRatioExceed&) {
    }
}

void skipToMarker(InputStream& in, unsigned int offset) {
    if (offset == 0) return;
    offset -= kMarkerBytes;  // Kept as is: below 7 this wraps, and is refused like every offset that is too large.
    if (offset > kFurthestMarker) kUnit.raise<ArchivingException>("Not a rar package");
    in.skip(static_cast<long>(offset));
}

// The next block when it is a whole and sound one of this type, otherwise null.
std::unique_ptr<RarBlock> soundBlock(InputStream& in, int type) {
    std::unique_ptr<RarBlock> block = RarBlock::parseBlock(in);
    if (!block || !block->continueParse(in) || block->h_type != type || !block->verify()) return nullptr;
    return block;
}

// The entries, from behind the archive header on.
class EntryWalk {
public:
    // `source` is null where `in` does not read from a buffer.
    EntryWalk(PositionInputStream& in, BufferBase* source, ArchiveEntryProcessor& entries,
              DecompressProcessor* decompression, bool solidArchive)
        : _in(in),
          _source(source),
          _entries(entries),
          _decompression(decompression),
          _decompressor(decompression),
          _solidArchive(solidArchive),
          _persists(entries.persists()) {}

    void run();

private:
    // An entry that was not decoded to its end, and where its data is.
    struct PassedOver {
        std::unique_ptr<RarFileBlock> file;
        long position;
    };

    bool parseRest(RarBlock& block) const;
    void tellOfEnd(std::int64_t start) const;
    void tellOfHeader(const RarBlock& block);
    void takeFile(std::unique_ptr<RarFileBlock> file);
    bool refuses(const RarFileBlock& file) const;
    void takeData(RarFileBlock& file, BoundedInputStream& data);
    void offer(const RarFileBlock& file, BoundedInputStream& data);
    void transfer(const RarFileBlock& file, BoundedInputStream& data, int action, OutputStream* out);
    void transferSolid(const RarFileBlock& file, BoundedInputStream& data, int action, OutputStream* out);
    void copyStored(const RarFileBlock& file, BoundedInputStream& data, OutputStream& out);
    void decode(const RarFileBlock& file, InputStream& data, OutputStream& out);
    void decodePassedOver();
    template <class Call>
    bool attempt(const RarFileBlock& file, Call call);
    void report(const RarFileBlock& file);
    void tellMissing(const RarFileBlock& file, std::int64_t missingBytes);
    bool isCut(std::int64_t start, std::int64_t bytes) const;
    void tell(ArchiveTrouble what, const RarFileBlock* file, const std::string& text) const;

    // Whether later entries may build on what this one unpacks to. The first entry of a solid archive has no flag of
    // its own.
    bool othersBuildOn(const RarFileBlock& file) const { return !file.isStored() && (file.isSolid() || _solidArchive); }

    PositionInputStream& _in;
    BufferBase* _source;
    ArchiveEntryProcessor& _entries;
    DecompressProcessor* _decompression;
    RarDecompressor _decompressor;
    bool _solidArchive;
    bool _persists;
    bool _endSeen = false;                  // The archive's end block.
    bool _decoded = false;                  // The entry at hand, to its end.
    bool _isCut = false;                    // The source ends inside its data.
    bool _chainBroken = false;              // What a solid entry that follows builds on cannot be had.
    std::optional<PassedOver> _passedOver;  // What it builds on.
};

void EntryWalk::run() {
    for (;;) {
        const std::int64_t start = _in.position();
        std::unique_ptr<RarBlock> block = RarBlock::parseBlock(_in);
        if (!block) return tellOfEnd(start);
        if (!parseRest(*block)) {
            if (!_persists || !isCut(start, block->h_size)) kUnit.raise<ArchivingException>("Rar head error");
            return tell(ArchiveTrouble::truncated, nullptr, kCutHeaderText);
        }
        tellOfHeader(*block);
        if (block->h_type == RarBlock::kFile) {
            takeFile(std::unique_ptr<RarFileBlock>(static_cast<RarFileBlock*>(block.release())));
        } else {
            if (isCut(_in.position(), block->a_size)) tell(ArchiveTrouble::truncated, nullptr, kCutText);
            block->skipData(_in);
        }
    }
}

bool EntryWalk::parseRest(RarBlock& block) const {
    block.isLenient = _persists;
    if (block.continueParse(_in)) return true;
    if (block.h_type == RarBlock::kFile && static_cast<RarFileBlock&>(block).isEncrypted()) {
        tell(ArchiveTrouble::encrypted, nullptr, kEncryptedText);
    }
    return false;
}

// What follows the last block is of no interest behind the archive's end block, which old archives do not have, unless
// it makes the whole a ZIP archive for readers who begin at the end.
void EntryWalk::tellOfEnd(std::int64_t start) const {
    constexpr std::int64_t kSmallestBlock = 7;
    if (!_source || start >= _source->getSize()) return;
    if (_endSeen) {
        const bool endsLikeZip = _persists && ZipEndCentralDir::findPos(*_source) >= start && foreignFormat(*_source);
        if (endsLikeZip) tell(ArchiveTrouble::otherFormat, nullptr, "the members of ZIP behind it are not reached");
    } else if (_source->getSize() - start < kSmallestBlock) {
        tell(ArchiveTrouble::truncated, nullptr, kCutHeaderText);
    } else {
        tell(ArchiveTrouble::damaged, nullptr, "what follows is no block");
    }
}

void EntryWalk::tellOfHeader(const RarBlock& block) {
    const bool isEnd = block.h_type == RarBlock::kEnd;
    const bool isChecked = _persists && (isEnd || block.h_type == RarBlock::kService);
    if (isChecked && !block.rawCrcFits()) tell(ArchiveTrouble::damaged, nullptr, kBrokenText);
    if (isEnd && (block.h_flags & RarReservedBlock::kNextVolume)) {
        tell(ArchiveTrouble::otherVolume, nullptr, "another volume follows");
    }
    _endSeen = _endSeen || isEnd;
}

void EntryWalk::takeFile(std::unique_ptr<RarFileBlock> file) {
    const std::int64_t position = _in.position();
    if (file->isSplitBefore() && !_persists) return tell(ArchiveTrouble::otherVolume, nullptr, kContinuedText);
    BoundedInputStream data(&_in, std::min(file->packedSize(), kBeyondAnySource));
    _decoded = false;
    _isCut = isCut(position, file->packedSize());
    if (_isCut) tell(ArchiveTrouble::truncated, file.get(), kCutText);
    if (!file->isStored() && !file->isSolid()) _chainBroken = false;
    if (!_persists || !refuses(*file)) {
        takeData(*file, data);
    } else if (!file->isStored()) {
        _chainBroken = true;
    }
    data.skipRest();
    if (_decoded || _chainBroken) {
        _passedOver.reset();
    } else if (!file->isStored() && file->hasReadableData() && position <= std::numeric_limits<long>::max()) {
        _passedOver = {std::move(file), static_cast<long>(position)};
    }
}

// Whether nothing of the entry can be had, of which the processor is told.
bool EntryWalk::refuses(const RarFileBlock& file) const {
    const bool isPacked = !file.isStored() && file.hasReadableData();
    if (file.isEncrypted()) {
        tell(ArchiveTrouble::encrypted, &file, kEncryptedText);
    } else if (file.isSplitBefore()) {
        tell(ArchiveTrouble::otherVolume, &file, kContinuedText);
    } else if (file.isSplitAfter()) {
        tell(ArchiveTrouble::otherVolume, &file, "the entry is continued in the next volume");
    } else if (isPacked && !RarDecompressor::supports(file.unp_ver)) {
        tell(ArchiveTrouble::unknownMethod, &file, "a version of " + std::to_string(file.unp_ver) + " is needed");
    } else if (isPacked && file.isSolid() && _chainBroken) {
        tell(ArchiveTrouble::damaged, &file, kBuildsOnMissingText);
    } else {
        return false;
    }
    return true;
}

void EntryWalk::takeData(RarFileBlock& file, BoundedInputStream& data) {
    const bool sound = file.verify();
    if (!sound) {
        kDiag.at().dbg("Rar Broken File Header!");
        tell(ArchiveTrouble::damaged, &file, kBrokenText);
    }
    if (!file.hasReadableData() && !_isCut && (file.packedSize() > 0 || file.unpackedSize() > 0)) {
        tell(ArchiveTrouble::damaged, &file, "there is no data that could be read");
        if (!file.isStored()) _chainBroken = _persists;
    }
    if (sound || !file.isSolid()) {
        offer(file, data);
    } else if (!file.isStored() && file.hasReadableData()) {
        NullOutputStream nothing;
        attempt(file, [&] { decode(file, data, nothing); });
    }
}

void EntryWalk::offer(const RarFileBlock& file, BoundedInputStream& data) {
    if (_decompression) _decompression->init();
    _entries.beginUnarchiving();
    RarEntryInfo info;
    describe(file, info);
    int action = kActionSkip;
    const std::unique_ptr<OutputStream> out = _entries.processEntry(&info, action);
    if (action == kActionAbort) kUnit.raise<ArchivingException>("Archiving aborted");
    bool isDone = true;
    if (file.hasReadableData()) {
        isDone = attempt(file, [&] { untilSinkIsFull([&] { transfer(file, data, action, out.get()); }); });
    }
    if (!out || !isDone) return;
    untilSinkIsFull([&] {
        out->flush();
        out->close();
        _entries.endEntry(info, *out);
    });
}

// Does something with an entry's data. False when that failed, the processor was told so, and the walk goes on.
template <class Call>
bool EntryWalk::attempt(const RarFileBlock& file, Call call) {
    const auto passOver = [&](const std::string& text) {
        if (!_isCut) tell(ArchiveTrouble::damaged, &file, text);
        if (!file.isStored()) _chainBroken = true;
    };
    try {
        call();
        return true;
    } catch (const OutOfBudgetException&) {
        throw;
    } catch (ArchivingException& failure) {
        if (!_persists) throw;
        passOver(failure.getMessage());
    } catch (IOException& failure) {
        if (!_persists) throw;
        passOver(failure.getMessage());
    }
    return false;
}

void EntryWalk::transfer(const RarFileBlock& file, BoundedInputStream& data, int action, OutputStream* out) {
    if (othersBuildOn(file)) {
        transferSolid(file, data, action, out);
    } else if (!out) {
        return;
    } else if (action == kActionCopy || (action == kActionDecompress && file.isStored())) {
        copyStored(file, data, *out);
    } else if (action == kActionDecompress) {
        decode(file, data, *out);
    }
}

void EntryWalk::transferSolid(const RarFileBlock& file, BoundedInputStream& data, int action, OutputStream* out) {
    NullOutputStream nothing;
    CutOffOutputStream sink(out);
    if (out && action == kActionDecompress) {
        decode(file, data, sink);
    } else if (out && action == kActionCopy) {
        PumpInputStream pump(&data, &sink);
        decode(file, pump, nothing);
    } else {
        decode(file, data, nothing);
    }
}

void EntryWalk::tellMissing(const RarFileBlock& file, std::int64_t missingBytes) {
    if (missingBytes <= 0) return;
    const auto size = static_cast<long long>(file.unpackedSize());
    kDiag.at().err("Rar entry <%s> is incomplete: %lld of %lld bytes are missing.", nameOf(file).c_str(),
                   static_cast<long long>(missingBytes), size);
    if (!file.isStored()) _chainBroken = _persists;
    if (_isCut) return;
    tell(ArchiveTrouble::damaged, &file,
         std::to_string(missingBytes) + " of " + std::to_string(size) + " bytes are missing");
}

void EntryWalk::copyStored(const RarFileBlock& file, BoundedInputStream& data, OutputStream& out) {
    TakenOutputStream taken(&out);
    IOUtils::readAndWrite(data, taken);
    if (file.isStored()) tellMissing(file, file.unpackedSize() - taken.taken());
}

void EntryWalk::decode(const RarFileBlock& file, InputStream& data, OutputStream& out) {
    if (file.isSolid()) decodePassedOver();
    if (_chainBroken) kUnit.raise<ArchivingException>(kBuildsOnMissingText);
    try {
        _decompressor.decompress(data, file.packedSize(), out, file.unpackedSize(), file.unp_ver,
                                 file.isSolid() ? static_cast<int>(RarFileBlock::kSolid) : 0);
    } catch (CompressionException& e) {
        report(file);
        kUnit.raise<ArchivingException>(e.getMessage());
    } catch (const Exception&) {
        report(file);
        throw;
    }
    report(file);
    _decoded = true;
}

// In an archive that does not call itself solid, the first of the entries that build on each other may not have been
// decoded when the second one comes.
void EntryWalk::decodePassedOver() {
    if (!_passedOver) return;
    if (!_source) return tell(ArchiveTrouble::damaged, _passedOver->file.get(), "later entries build on it");
    const PassedOver entry = *std::exchange(_passedOver, std::nullopt);
    BufferBaseInputStream source(_source, entry.position);
    BoundedInputStream data(&source, entry.file->packedSize());
    NullOutputStream nothing;
    decode(*entry.file, data, nothing);
}

void EntryWalk::report(const RarFileBlock& file) {
    const RarOutcome& outcome = _decompressor.outcome();
    outcome.troubles.forEach([&](RarTrouble trouble, const char* what) {
        kDiag.at().err("Rar entry <%s>: %s.", nameOf(file).c_str(), what);
        tell(trouble == RarTrouble::filterNotRun ? ArchiveTrouble::damaged : ArchiveTrouble::spent, &file, what);
    });
    tellMissing(file, outcome.missingBytes);
}

// Whether the source ends before that many bytes from `start` on do.
bool EntryWalk::isCut(std::int64_t start, std::int64_t bytes) const {
    return _source && bytes > _source->getSize() - start;
}

void EntryWalk::tell(ArchiveTrouble what, const RarFileBlock* file, const std::string& text) const {
    const std::string name = file ? nameOf(*file) : "";
    _entries.trouble(what, file ? &name : nullptr, text);
}

}  // namespace

RarEntryInfo::~RarEntryInfo() = default;

bool RarUnarchiver::checkFormat(InputStream& in) {
    in.mark(kCheckMarkLimit);
    const std::unique_ptr<RarBlock> block = RarBlock::parseBlock(in);
    in.reset();
    return block && block->h_type == RarBlock::kMarker && block->verify();
}

RarUnarchiver::RarUnarchiver(InputStream* in, ArchiveEntryProcessor& entries, DecompressProcessor* decompression,
                             unsigned int offset)
    : _in(in), _entries(entries), _decompression(decompression), _offset(offset) {}

RarUnarchiver::RarUnarchiver(BufferBase* buffer, ArchiveEntryProcessor& entries, DecompressProcessor* decompression,
                             unsigned int offset)
    : _ownStream(streamOf(buffer)),
      _in(_ownStream.get()),
      _source(buffer),
      _entries(entries),
      _decompression(decompression),
      _offset(offset) {}

RarUnarchiver::~RarUnarchiver() = default;

void RarUnarchiver::start() {
    kDiag.at().dbg("RarUnarchiver::start");
    try {
        walk();
    } catch (const std::bad_alloc&) {
        raiseOutOfMemory();
    }
}

void RarUnarchiver::walk() {
    PositionInputStream in(_in);
    skipToMarker(in, _offset);
    if (!soundBlock(in, RarBlock::kMarker)) kUnit.raise<ArchivingException>("Not a rar package");
    const std::unique_ptr<RarBlock> archive = soundBlock(in, RarBlock::kArchive);
    if (!archive || !archive->skipData(in)) kUnit.raise<ArchivingException>("Rar archive info error");
    if (archive->h_flags & RarArchiveBlock::kEncryptedHeaders) {
        _entries.trouble(ArchiveTrouble::encrypted, nullptr, "all headers are encrypted");
        if (_entries.persists()) return;
    }
    EntryWalk(in, _source, _entries, _decompression, static_cast<RarArchiveBlock&>(*archive).isSolid()).run();
}

}  // namespace ZOV_SPACE
