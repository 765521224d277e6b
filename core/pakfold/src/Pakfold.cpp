#include "unarchiver/Pakfold.h"

#include "Raise.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"Pakfold"};

// The lines that the exceptions name; fixed, wherever the code moves.
constexpr int kEncodeLine = 130;
constexpr int kDecodeLine = 160;
constexpr int kDecompressLine = 296;
constexpr int kAddEntryLine = 497;
constexpr int kAddRawStreamLine = 502;
constexpr int kAddRawEntryLine = 508;
constexpr int kFinishLine = 514;
constexpr int kStartLine = 664;

[[noreturn]] void raiseUnimplemented(int line) { kUnit.raiseAt<ArchivingException>(line, "Unimplemented"); }

}  // namespace

EmptyArchiveId ARCHIVEID_UNKNOWN;
EmptyArchiveId ARCHIVEID_NONE;

ArchiveEntryInfo::~ArchiveEntryInfo() = default;
bool ArchiveEntryInfo::operator<(const ArchiveEntryInfo& other) const { return processorWord < other.processorWord; }

ArchiveEntryProcessor::~ArchiveEntryProcessor() = default;
void ArchiveEntryProcessor::beginUnarchiving() {}
std::unique_ptr<OutputStream> ArchiveEntryProcessor::processEntry(ArchiveEntryInfo*, int& action) {
    action = kActionSkip;
    return nullptr;
}
void ArchiveEntryProcessor::endUnarchiving() {}
void ArchiveEntryProcessor::releaseSession() {}
void ArchiveEntryProcessor::endEntry(const ArchiveEntryInfo&, OutputStream&) {}
void ArchiveEntryProcessor::trouble(ArchiveTrouble, const std::string*, const std::string&) {}
bool ArchiveEntryProcessor::persists() const { return false; }
std::unique_ptr<BufferBase> ArchiveEntryProcessor::volume(int) { return nullptr; }
std::string ArchiveEntryProcessor::archiveName() const { return {}; }

ArchiveProcessor::~ArchiveProcessor() = default;
bool ArchiveProcessor::process(const ArchiveEntryInfo*) { return true; }

DecompressProcessor::~DecompressProcessor() = default;

Decompressor::~Decompressor() = default;
void Decompressor::decompress(InputStream&, OutputStream&) { raiseUnimplemented(kDecompressLine); }
int Decompressor::getAlgorithm() const { return 0; }
std::string Decompressor::getAlgorithmName() const { return "none"; }

Encoder::~Encoder() = default;
void Encoder::encode(InputStream&, OutputStream&) { raiseUnimplemented(kEncodeLine); }
int Encoder::getAlgorithm() const { return 0; }
std::string Encoder::getAlgorithmName() const { return "none"; }

Decoder::~Decoder() = default;
void Decoder::decode(InputStream&, OutputStream&) { raiseUnimplemented(kDecodeLine); }
int Decoder::getAlgorithm() const { return 0; }
std::string Decoder::getAlgorithmName() const { return "none"; }

ArchiveEntry::~ArchiveEntry() = default;

Archiver::~Archiver() = default;
void Archiver::addEntry(ArchiveEntryInfo*, InputStream&) { raiseUnimplemented(kAddEntryLine); }
void Archiver::addRawEntry(ArchiveEntryInfo*, InputStream&) { raiseUnimplemented(kAddRawStreamLine); }
void Archiver::addRawEntry(ArchiveEntry*) { raiseUnimplemented(kAddRawEntryLine); }
void Archiver::finish() { raiseUnimplemented(kFinishLine); }

Unarchiver::~Unarchiver() = default;
void Unarchiver::start() { raiseUnimplemented(kStartLine); }

ArchiveId::~ArchiveId() = default;

EmptyArchiveId::~EmptyArchiveId() = default;
bool EmptyArchiveId::accept(InputStream&) const { return false; }
std::unique_ptr<Unarchiver> EmptyArchiveId::unarchiver(InputStream*, ArchiveEntryProcessor&,
                                                       DecompressProcessor*) const {
    return nullptr;
}
std::unique_ptr<Unarchiver> EmptyArchiveId::unarchiver(BufferBase*, ArchiveEntryProcessor&,
                                                       DecompressProcessor*) const {
    return nullptr;
}
std::unique_ptr<Archiver> EmptyArchiveId::archiver(OutputStream&) const { return nullptr; }
bool EmptyArchiveId::entryArchivable(const ArchiveEntryInfo*) const { return false; }
std::unique_ptr<Crc> EmptyArchiveId::crc() const { return nullptr; }
bool EmptyArchiveId::archivable() const { return false; }

}  // namespace ZOV_SPACE
