// The walk. An archive is a row of blocks, each a header that says how much data follows it, so that what is not known
// can be passed over: marker, archive header, then files and others in any order, up to the first that cannot be read.
// The walk alone decides where the next block begins: whoever takes an entry's data gets a stream that ends with it,
// and what is left of it is skipped.
#include "rar/RarUnarchiver.h"

#include <new>

#include "PositionInputStream.h"
#include "Raise.h"
#include "io/BufferBaseStreams.h"
#include "rar/RarBlock.h"
#include "rar/RarEntryReader.h"
#include "unarchiver/ForeignFormat.h"
#include "util/Diag.h"
#include "zip/ZipEndCentralDir.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"../../core/pakfold/src/unarchiver/Rar"};
constexpr diag::Unit kDiag{"../../core/pakfold/src/unarchiver/Rar"};

constexpr int kCheckMarkLimit = 1024;
constexpr unsigned kMarkerBytes = 7;
constexpr unsigned kFurthestMarker = 524288;

[[noreturn]] void raiseOutOfMemory() { kUnit.raise<OutOfMemoryException>("Out of memory"); }

std::unique_ptr<InputStream> streamOf(BufferBase* buffer) {
    try {
        return std::make_unique<BufferBaseInputStream>(buffer);
    } catch (const std::bad_alloc&) {
        raiseOutOfMemory();
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

// The blocks, from behind the archive header on.
class BlockWalk {
public:
    // `source` is null where `in` does not read from a buffer.
    BlockWalk(PositionInputStream& in, BufferBase* source, RarEntryReader& entries)
        : _in(in), _source(source), _entries(entries) {}

    void run();

private:
    bool parseRest(RarBlock& block) const;
    void tellOfEnd(std::int64_t start) const;
    void tellOfHeader(const RarBlock& block);
    void tell(ArchiveTrouble what, const char* text) const { _entries.tell(what, nullptr, text); }

    PositionInputStream& _in;
    BufferBase* _source;
    RarEntryReader& _entries;
    bool _endSeen = false;  // The archive's end block.
};

void BlockWalk::run() {
    for (;;) {
        const std::int64_t start = _in.position();
        std::unique_ptr<RarBlock> block = RarBlock::parseBlock(_in);
        if (!block) return tellOfEnd(start);
        if (!parseRest(*block)) {
            const bool isCut = _entries.persists() && _entries.isCut(start, block->h_size);
            if (!isCut) kUnit.raise<ArchivingException>("Rar head error");
            return tell(ArchiveTrouble::truncated, rarTexts::kCutHeader);
        }
        tellOfHeader(*block);
        if (block->h_type == RarBlock::kFile) {
            _entries.take(std::unique_ptr<RarFileBlock>(static_cast<RarFileBlock*>(block.release())), _in);
        } else {
            if (_entries.isCut(_in.position(), block->a_size)) tell(ArchiveTrouble::truncated, rarTexts::kCut);
            block->skipData(_in);
        }
    }
}

bool BlockWalk::parseRest(RarBlock& block) const {
    block.isLenient = _entries.persists();
    if (block.continueParse(_in)) return true;
    if (block.h_type == RarBlock::kFile && static_cast<RarFileBlock&>(block).isEncrypted()) {
        tell(ArchiveTrouble::encrypted, rarTexts::kEncrypted);
    }
    return false;
}

// What follows the last block is of no interest behind the archive's end block, which old archives do not have, unless
// it makes the whole a ZIP archive for readers who begin at the end.
void BlockWalk::tellOfEnd(std::int64_t start) const {
    if (!_source || start >= _source->getSize()) return;
    if (_endSeen) {
        const bool endsLikeZip =
            _entries.persists() && ZipEndCentralDir::findPos(*_source) >= start && foreignFormat(*_source);
        if (endsLikeZip) tell(ArchiveTrouble::otherFormat, "the members of ZIP behind it are not reached");
    } else if (_source->getSize() - start < RarBlock::kFewestBytes) {
        tell(ArchiveTrouble::truncated, rarTexts::kCutHeader);
    } else {
        tell(ArchiveTrouble::damaged, rarTexts::kNoBlock);
    }
}

void BlockWalk::tellOfHeader(const RarBlock& block) {
    _entries.tellOfHeader(block);
    _endSeen = _endSeen || block.h_type == RarBlock::kEnd;
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
        _entries.trouble(ArchiveTrouble::encrypted, nullptr, rarTexts::kEncryptedHeaders);
        if (_entries.persists()) return;
    }
    const bool isSolid = static_cast<RarArchiveBlock&>(*archive).isSolid();
    RarEntryReader reader(_source, _entries, _decompression, isSolid, _entries.persists());
    BlockWalk(in, _source, reader).run();
}

}  // namespace ZOV_SPACE
