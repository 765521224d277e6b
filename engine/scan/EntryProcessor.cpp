#include "EntryProcessor.h"

#include <algorithm>
#include <utility>

#include "ContentScan.h"
#include "Raise.h"
#include "WrappedLimitedBufferBase.h"
#include "unarchiver/ScanBudget.h"
#include "util/Diag.h"

using ZOV_SPACE::ArchiveEntryInfo;
using ZOV_SPACE::ArchiveTrouble;
using ZOV_SPACE::OutputStream;
using ZOV_SPACE::SmartBufferBase;

namespace {

constexpr diag::Unit kDiag{"Unarchive"};
constexpr ZOV_SPACE::ThrowUnit kUnit{"Unarchive"};

[[noreturn]] void raiseNoRoom() { kUnit.raise<ZOV_SPACE::OutOfBudgetException>("Out of budget"); }

Unseen unseenFor(ArchiveTrouble what) {
    switch (what) {
        case ArchiveTrouble::encrypted:
            return Unseen::encrypted;
        case ArchiveTrouble::unknownMethod:
            return Unseen::method;
        case ArchiveTrouble::otherVolume:
            return Unseen::volume;
        case ArchiveTrouble::truncated:
            return Unseen::truncated;
        case ArchiveTrouble::spent:
            return Unseen::workBudget;
        case ArchiveTrouble::otherFormat:
            return Unseen::unsupported;
        case ArchiveTrouble::checkSum:
            return Unseen::checkSum;
        case ArchiveTrouble::damaged:
            break;
    }
    return Unseen::damaged;
}

const char* beyondText(Unseen what) {
    return what == Unseen::ratioLimit ? "it unpacks to more than the ratio allows" : "it is larger than the limit";
}

}  // namespace

EntryProcessor::EntryProcessor(ScanFace& face, WorkList& workList, const _st_ArchEntry& archive)
    : _face(face),
      _workList(workList),
      _archive(archive),
      _archiveName(std::make_shared<const ContentName>(archive.name)) {}

EntryProcessor::~EntryProcessor() = default;

std::unique_ptr<OutputStream> EntryProcessor::processEntry(ArchiveEntryInfo* entry, int& action) {
    action = ZOV_SPACE::kActionSkip;
    _sink = nullptr;
    _troubled = false;
    ZOV_SPACE::ScanBudget::worked(0);
    ++_offered;
    const auto terms = _face.admit(_archive, *entry, {_workList.size(), _offered});
    if (!terms) return nullptr;
    if (!_workList.hasRoom()) raiseNoRoom();

    action = ZOV_SPACE::kActionDecompress;
    if (entry->algorithm == ZOV_SPACE::kAlgorithmUnknown) {
        kDiag.at().err("Unknown method, the packed bytes are scanned: <%s>", entry->name.c_str());
        unseen(Unseen::method, &entry->name, "compressed with a method that is not known");
        action = ZOV_SPACE::kActionCopy;
    }
    _unpacked = action == ZOV_SPACE::kActionDecompress;
    entry->processorWord = _sequence;
    auto out = queue(*entry, *terms);
    ++_sequence;
    return out;
}

std::unique_ptr<SmartBufferBase> EntryProcessor::storageFor(long announced) {
    const bool inMemory = _spare && _spare->getFileDescriptor() == -1;
    if (inMemory && announced <= _spareCapacity) {
        _spare->truncate(0);
        return std::move(_spare);
    }
    _spare.reset();
    auto storage =
        std::make_unique<SmartBufferBase>(announced, ZOV_SPACE::kMemoryOrFilePolicy, MemberSink::kMostInMemory);
    if (!storage->isValid()) kUnit.raise<ZOV_SPACE::OutOfMemoryException>("Out of memory");
    _spareCapacity = announced;
    return storage;
}

std::unique_ptr<OutputStream> EntryProcessor::queue(const ArchiveEntryInfo& entry, const MemberTerms& terms) {
    const auto announced = static_cast<unsigned int>(entry.uncompressedSize);
    const auto capacity = static_cast<long>(std::min<unsigned int>(announced, WrappedLimitedBufferBase::kHighestLimit));
    auto buffer = std::make_unique<WrappedLimitedBufferBase>(storageFor(capacity), terms.mostBytes);
    WrappedLimitedBufferBase& content = *buffer;
    _st_ArchEntry& record =
        _workList.append({std::move(buffer), _archive.level + 1, ContentName(_archiveName, entry.name, _sequence)});
    record.isPacked = !_unpacked;
    record.member = {entry.method, static_cast<std::uint32_t>(entry.compressedSize), CheckSumState::none};
    const bool comparesCheckSum = entry.hasCheckSum && _unpacked && _face.comparesCheckSums();
    auto sink = std::make_unique<MemberSink>(_face, _workList, record, content, capacity, comparesCheckSum);
    _sink = sink.get();
    _beyond = terms.beyond;
    return sink;
}

void EntryProcessor::endEntry(const ArchiveEntryInfo& entry, OutputStream&) {
    MemberSink& sink = *std::exchange(_sink, nullptr);
    _st_ArchEntry& record = sink.record();
    sink.complete();
    if (sink.isCut()) {
        _face.onUnseen(_beyond, record, nullptr, beyondText(_beyond));
    } else if (sink.countsCheckSum() && !_troubled) {
        const bool isRight = sink.checkSum() == entry.checkSum;
        record.member.checkSum = isRight ? CheckSumState::right : CheckSumState::wrong;
        if (!isRight) _face.onUnseen(Unseen::checkSum, record, nullptr, "the check-sum of the unpacked data is wrong");
    }
    _spare = scanEarly(_face, record, sink.content());
    if (!_workList.recount(record)) giveUp(record);
    _face.onMemberDone(record, sink.bytes());
}

// The content would be opened or dumped in its turn, but there is no room to keep it until then.
void EntryProcessor::giveUp(_st_ArchEntry& record) {
    if (record.early) {
        record.early->format = &ZOV_SPACE::ARCHIVEID_NONE;
        record.buffer.reset();
        _workList.recount(record);
    }
    raiseNoRoom();
}

void EntryProcessor::trouble(ArchiveTrouble what, const std::string* member, const std::string& text) {
    _troubled = true;
    unseen(unseenFor(what), member, text.c_str());
    ZOV_SPACE::ScanBudget::worked(0);  // An archive may have nothing but entries that are never offered.
}

void EntryProcessor::unseen(Unseen what, const std::string* member, const char* text) const {
    _face.onUnseen(what, _archive, member, text);
}
