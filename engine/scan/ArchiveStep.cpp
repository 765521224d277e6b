#include "EntryProcessor.h"

#include <algorithm>
#include <new>
#include <string_view>
#include <utility>

#include "ContentScan.h"
#include "Raise.h"
#include "Text.h"
#include "Utils.h"
#include "WrappedLimitedBufferBase.h"
#include "io/BufferBaseStreams.h"
#include "io/SmartBufferBase.h"
#include "unarchiver/ScanBudget.h"
#include "util/Diag.h"

using ZOV_SPACE::ArchiveEntryInfo;
using ZOV_SPACE::OutputStream;
using ZOV_SPACE::SmartBufferBase;
using ZOV_SPACE::Utils;

namespace {

constexpr diag::Unit kDiag{"Unarchive"};
constexpr ZOV_SPACE::ThrowUnit kUnit{"Unarchive"};

// Bytes of one content that stay in memory while it is unpacked and scanned; only one at a time is.
constexpr long kMostInMemory = 16L << 20;

constexpr long kSmallestLoan = 64L << 10;

[[noreturn]] void raiseNoRoom() { kUnit.raise<ZOV_SPACE::OutOfBudgetException>("Out of budget"); }

// Writes a record's content, and has it scanned when it is complete.
class ContentOutputStream : public ZOV_SPACE::BufferBaseOutputStream {
public:
    // `announced`: the content's size, in bytes, as the archive says it.
    // `spare` takes the content when it is needed no more.
    ContentOutputStream(WorkList& workList, _st_ArchEntry& record, WrappedLimitedBufferBase& content, long announced,
                        int maxDepth, std::unique_ptr<SmartBufferBase>& spare)
        : BufferBaseOutputStream(&content),
          _workList(workList),
          _record(record),
          _content(content),
          _announced(announced),
          _maxDepth(maxDepth),
          _spare(spare) {}

    // Content whose unpacking failed waits for its turn like any other, so it must not keep what only one may.
    ~ContentOutputStream() override {
        if (_complete) return;
        try {
            _content.useSharedBarrier();
        } catch (const ZOV_SPACE::Exception&) {
        } catch (const std::bad_alloc&) {
        }
        _workList.recount(_record);
    }

    std::span<char> lendSpace() override {
        if (_complete) return {};
        const long size = _content.getSize();
        if (_announced > kMostInMemory || size > kMostInMemory - kSmallestLoan) return {};
        return _content.appendSpace(_announced > size ? _announced - size : kSmallestLoan);
    }

    void commitSpace(long n) override {
        _content.commitAppend(n);
        advance(n);
    }

    void close() override {
        BufferBaseOutputStream::close();
        _complete = true;
        _spare = scanEarly(_record, _content, _maxDepth);
        if (!_workList.recount(_record)) giveUp();
    }

private:
    // The content would be opened or dumped in its turn, but there is no room to keep it until then.
    [[noreturn]] void giveUp() {
        if (_record.early) {
            _record.early->format = &ZOV_SPACE::ARCHIVEID_NONE;
            _record.buffer.reset();
            _workList.recount(_record);
        }
        raiseNoRoom();
    }

    WorkList& _workList;
    _st_ArchEntry& _record;
    WrappedLimitedBufferBase& _content;
    long _announced;
    int _maxDepth;
    std::unique_ptr<SmartBufferBase>& _spare;
    bool _complete = false;
};

}  // namespace

EntryProcessor::EntryProcessor(const OptionValues& options, WorkList& workList, std::string archiveName, int level)
    : _options(options),
      _workList(workList),
      _archiveName(std::make_shared<const std::string>(std::move(archiveName))),
      _level(level) {}

EntryProcessor::~EntryProcessor() = default;

std::unique_ptr<OutputStream> EntryProcessor::processEntry(ArchiveEntryInfo* entry, int& action) {
    action = ZOV_SPACE::kActionSkip;
    const int size = entry->compressedSize;
    const int usize = entry->uncompressedSize;
    if (entry->name.empty()) {
        kDiag.at().dbg("process_entry : [NULL], size= %d, usize= %d", size, usize);
    } else {
        kDiag.at().dbg("process_entry : <%s>, size= %d, usize= %d", entry->name.c_str(), size, usize);
    }
    ++_addedEntries;
    kDiag.at().dbg("list size= %d, added entries= %d, limit= %d.", static_cast<int>(_workList.size()), _addedEntries,
                   _options.maxEntries);
    if (size == 0 && usize == 0) return nullptr;
    checkCounts();
    if (!passesLimits(static_cast<unsigned>(size), static_cast<unsigned>(usize))) return nullptr;
    if (!_workList.hasRoom()) raiseNoRoom();

    action = ZOV_SPACE::kActionDecompress;
    if (entry->algorithm == ZOV_SPACE::kAlgorithmUnknown) {
        kDiag.at().err("Unknown method, the packed bytes are scanned: <%s>", entry->name.c_str());
        action = ZOV_SPACE::kActionCopy;
    }
    entry->processorWord = _sequence;
    auto out = queue(*entry);
    ++_sequence;
    return out;
}

void EntryProcessor::checkCounts() const {
    const auto waiting = static_cast<long long>(_workList.size());
    if (_options.maxEntries != 0 && waiting + 1 > _options.maxEntries) {
        kUnit.raise<ZOV_SPACE::UnarchivePolicyException>(
            Utils::formatString("Reach the entries limit [%d].", _options.maxEntries));
    }
    if (_options.maxLevelEntries != 0 && _addedEntries > _options.maxLevelEntries) {
        kUnit.raise<ZOV_SPACE::UnarchivePolicyException>(
            Utils::formatString("Reach the level entries limit [%d].", _options.maxLevelEntries));
    }
}

bool EntryProcessor::passesLimits(unsigned int packedSize, unsigned int unpackedSize) const {
    const auto maxSize = static_cast<unsigned int>(_options.maxSize);
    if (maxSize != 0 && packedSize > maxSize) {
        kDiag.at().err("Oversize entry(size): [%d] > [%d]", static_cast<int>(packedSize), _options.maxSize);
        return false;
    }
    if (maxSize != 0 && unpackedSize > maxSize) {
        kDiag.at().err("Oversize entry(usize): [%d] > [%d]", static_cast<int>(unpackedSize), _options.maxSize);
        return false;
    }
    if (_options.maxRatio != 0 && packedSize > 0) {
        const unsigned int ratio = unpackedSize / packedSize;
        if (ratio > static_cast<unsigned int>(_options.maxRatio)) {
            kDiag.at().err("Overratio entry: [%d] > [%d]", static_cast<int>(ratio), _options.maxRatio);
            return false;
        }
    }
    return true;
}

ContentName EntryProcessor::nameOf(const ArchiveEntryInfo& entry) const {
    namespace text = ZOV_SPACE::text;
    const std::string_view inner = text::trimStart(text::upTo(entry.name, '\0'), "/");
    return inner.empty() ? ContentName(_archiveName, std::to_string(_sequence)) : ContentName(_archiveName, inner);
}

std::unique_ptr<SmartBufferBase> EntryProcessor::storageFor(long announced) {
    const bool inMemory = _spare && _spare->getFileDescriptor() == -1;
    if (inMemory && announced <= _spareCapacity) {
        _spare->truncate(0);
        return std::move(_spare);
    }
    _spare.reset();
    auto storage = std::make_unique<SmartBufferBase>(announced, ZOV_SPACE::kMemoryOrFilePolicy, kMostInMemory);
    if (!storage->isValid()) kUnit.raise<ZOV_SPACE::OutOfMemoryException>("Out of memory");
    _spareCapacity = announced;
    return storage;
}

std::unique_ptr<OutputStream> EntryProcessor::queue(const ArchiveEntryInfo& entry) {
    const auto announced = static_cast<unsigned int>(entry.uncompressedSize);
    const auto capacity = std::min<unsigned int>(announced, WrappedLimitedBufferBase::kHighestLimit);
    auto buffer = std::make_unique<WrappedLimitedBufferBase>(storageFor(static_cast<long>(capacity)), _options.maxSize);
    WrappedLimitedBufferBase& content = *buffer;
    _st_ArchEntry& record = _workList.append({std::move(buffer), _level, nameOf(entry)});
    return std::make_unique<ContentOutputStream>(_workList, record, content, static_cast<long>(capacity),
                                                 _options.maxDepth, _spare);
}
