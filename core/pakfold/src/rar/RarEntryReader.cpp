#include "rar/RarEntryReader.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "Exception.h"
#include "IOUtils.h"
#include "Raise.h"
#include "io/BufferBaseStreams.h"
#include "rar/RarUnarchiver.h"
#include "unarchiver/ScanBudget.h"
#include "util/Diag.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"../../core/pakfold/src/unarchiver/Rar"};
constexpr diag::Unit kDiag{"../../core/pakfold/src/unarchiver/Rar"};

// Sizes above are as good as this one. Where long has 32 bits, skipping by 64-bit sizes takes very many steps.
constexpr std::int64_t kBeyondAnySource = std::int64_t{1} << 32;

constexpr const char* kBuildsOnMissingText = "the entry builds on one that could not be decoded";

int size32(std::int64_t size) {
    constexpr std::int64_t kLargest = std::numeric_limits<std::uint32_t>::max();
    return static_cast<int>(static_cast<std::uint32_t>(std::min(size, kLargest)));
}

// A zero byte and an encoded form may follow the name.
std::string nameOf(const RarFileBlock& file) { return file.rawName().substr(0, file.rawName().find('\0')); }

// By the version that is needed to unpack it: methods of one version differ in how hard the packer tried.
const char* methodName(const RarFileBlock& file) {
    if (file.isStored()) return "stored";
    if (file.unp_ver < 20) return "rar 1.5";
    return file.unp_ver < 29 ? "rar 2.0" : "rar 2.9";
}

void describe(const RarFileBlock& file, RarEntryInfo& info) {
    info.algorithm = kAlgorithmRar;
    info.method = methodName(file);
    info.name = nameOf(file);
    info.flags = static_cast<int>(file.attr);
    info.time = file.ftime;
    info.compressedSize = size32(file.packedSize());
    info.uncompressedSize = size32(file.unpackedSize());
    info.checkSum = file.file_crc;
    info.isFolder = file.isFolder();
}

// A sink that takes no more ends the entry, not the walk; it keeps what it has.
template <class Call>
void untilSinkIsFull(Call call) {
    try {
        call();
    } catch (const UnarchiveRatioExceed&) {
    }
}

}  // namespace

RarEntryReader::RarEntryReader(BufferBase* source, ArchiveEntryProcessor& entries, DecompressProcessor* decompression,
                               bool solidArchive, bool persists)
    : _source(source),
      _entries(entries),
      _decompression(decompression),
      _solidArchive(solidArchive),
      _persists(persists) {}

bool RarEntryReader::take(std::unique_ptr<RarFileBlock> file, PositionInputStream& in) {
    const std::int64_t position = in.position();
    if (file->isSplitBefore() && !_persists) {
        tell(ArchiveTrouble::otherVolume, nullptr, rarTexts::kContinued);
        return true;
    }
    BoundedInputStream data(&in, std::min(file->packedSize(), kBeyondAnySource));
    _decoded = _failed = false;
    _isCut = isCut(position, file->packedSize());
    if (_isCut) tell(ArchiveTrouble::truncated, file.get(), rarTexts::kCut);
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
    return !_failed;
}

void RarEntryReader::breakChain() {
    _chainBroken = true;
    _passedOver.reset();
}

void RarEntryReader::tellOfHeader(const RarBlock& block) const {
    const bool isEnd = block.h_type == RarBlock::kEnd;
    const bool isChecked = _persists && (isEnd || block.h_type == RarBlock::kService);
    if (isChecked && !block.rawCrcFits()) tell(ArchiveTrouble::damaged, nullptr, rarTexts::kBroken);
    if (isEnd && (block.h_flags & RarReservedBlock::kNextVolume)) {
        tell(ArchiveTrouble::otherVolume, nullptr, rarTexts::kNextVolume);
    }
}

// Whether nothing of the entry can be had, of which the processor is told.
bool RarEntryReader::refuses(const RarFileBlock& file) const {
    const bool isPacked = !file.isStored() && file.hasReadableData();
    if (file.isEncrypted()) {
        tell(ArchiveTrouble::encrypted, &file, rarTexts::kEncrypted);
    } else if (file.isSplitBefore()) {
        tell(ArchiveTrouble::otherVolume, &file, rarTexts::kContinued);
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

void RarEntryReader::takeData(RarFileBlock& file, BoundedInputStream& data) {
    const bool sound = file.verify();
    if (!sound) {
        kDiag.at().dbg("Rar Broken File Header!");
        tell(ArchiveTrouble::damaged, &file, rarTexts::kBroken);
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

void RarEntryReader::offer(const RarFileBlock& file, BoundedInputStream& data) {
    if (_decompression) _decompression->init();
    _entries.beginUnarchiving();
    RarEntryInfo info;
    describe(file, info);
    int action = kActionSkip;
    const std::unique_ptr<OutputStream> out = _entries.processEntry(&info, action);
    if (action == kActionAbort) kUnit.raise<ArchivingException>("Archiving aborted");
    if (file.hasReadableData()) {
        attempt(file, [&] { untilSinkIsFull([&] { transfer(file, data, action, out.get()); }); });
    }
    if (!out) return;
    untilSinkIsFull([&] {
        out->flush();
        out->close();
        _entries.endEntry(info, *out);
    });
}

// Does something with an entry's data. Where that fails and the walk goes on, the processor is told.
template <class Call>
void RarEntryReader::attempt(const RarFileBlock& file, Call call) {
    const auto passOver = [&](const std::string& text) {
        _failed = true;
        if (!_isCut) tell(ArchiveTrouble::damaged, &file, text);
        if (!file.isStored()) _chainBroken = true;
    };
    try {
        call();
    } catch (const OutOfBudgetException&) {
        throw;
    } catch (ArchivingException& failure) {
        if (!_persists) throw;
        passOver(failure.getMessage());
    } catch (IOException& failure) {
        if (!_persists) throw;
        passOver(failure.getMessage());
    }
}

void RarEntryReader::transfer(const RarFileBlock& file, BoundedInputStream& data, int action, OutputStream* out) {
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

void RarEntryReader::transferSolid(const RarFileBlock& file, BoundedInputStream& data, int action, OutputStream* out) {
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

void RarEntryReader::tellMissing(const RarFileBlock& file, std::int64_t missingBytes) {
    if (missingBytes <= 0) return;
    _failed = true;
    const auto size = static_cast<long long>(file.unpackedSize());
    kDiag.at().err("Rar entry <%s> is incomplete: %lld of %lld bytes are missing.", nameOf(file).c_str(),
                   static_cast<long long>(missingBytes), size);
    if (!file.isStored()) _chainBroken = _persists;
    if (_isCut) return;
    tell(ArchiveTrouble::damaged, &file,
         std::to_string(missingBytes) + " of " + std::to_string(size) + " bytes are missing");
}

void RarEntryReader::copyStored(const RarFileBlock& file, BoundedInputStream& data, OutputStream& out) {
    TakenOutputStream taken(&out);
    IOUtils::readAndWrite(data, taken);
    if (!file.isStored()) return;
    tellMissing(file, file.unpackedSize() - taken.taken());
    // Some readers stop at the size that is announced.
    if (_persists && !_isCut && file.rawCrcFits() && taken.taken() > file.unpackedSize()) {
        tell(ArchiveTrouble::damaged, &file, "there is more data than is announced");
    }
}

void RarEntryReader::decode(const RarFileBlock& file, InputStream& data, OutputStream& out) {
    if (file.isSolid()) decodePassedOver();
    if (_chainBroken) kUnit.raise<ArchivingException>(kBuildsOnMissingText);
    try {
        if (!_decompressor) _decompressor.emplace(_decompression);
        _decompressor->decompress(data, file.packedSize(), out, file.unpackedSize(), file.unp_ver,
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
void RarEntryReader::decodePassedOver() {
    if (!_passedOver) return;
    if (!_source) return tell(ArchiveTrouble::damaged, _passedOver->file.get(), "later entries build on it");
    const PassedOver entry = *std::exchange(_passedOver, std::nullopt);
    BufferBaseInputStream source(_source, entry.position);
    BoundedInputStream data(&source, entry.file->packedSize());
    NullOutputStream nothing;
    decode(*entry.file, data, nothing);
}

void RarEntryReader::report(const RarFileBlock& file) {
    const RarOutcome& outcome = _decompressor->outcome();
    outcome.troubles.forEach([&](RarTrouble trouble, const char* what) {
        kDiag.at().err("Rar entry <%s>: %s.", nameOf(file).c_str(), what);
        tell(trouble == RarTrouble::filterNotRun ? ArchiveTrouble::damaged : ArchiveTrouble::spent, &file, what);
    });
    tellMissing(file, outcome.missingBytes);
}

// Whether the source ends before that many bytes from `start` on do.
bool RarEntryReader::isCut(std::int64_t start, std::int64_t bytes) const {
    return _source && bytes > _source->getSize() - start;
}

void RarEntryReader::tell(ArchiveTrouble what, const RarFileBlock* file, const std::string& text) const {
    const std::string name = file ? nameOf(*file) : "";
    _entries.trouble(what, file ? &name : nullptr, text);
}

}  // namespace ZOV_SPACE
