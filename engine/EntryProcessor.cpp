#include "EntryProcessor.h"

#include <algorithm>
#include <utility>

#include "Raise.h"
#include "Utils.h"
#include "WrappedLimitedBufferBase.h"
#include "io/BufferBaseStreams.h"
#include "io/SmartBufferBase.h"
#include "util/Diag.h"

using ZOV_SPACE::ArchiveEntryInfo;
using ZOV_SPACE::OutputStream;
using ZOV_SPACE::SmartBufferBase;
using ZOV_SPACE::Utils;

namespace {

constexpr diag::Unit kDiag{"Unarchive"};
constexpr ZOV_SPACE::ThrowUnit kUnit{"Unarchive"};

// Of the folder, in names, that an archive's entries lie in: the archive itself may be an entry with its own name.
constexpr const char* kFolderSuffix = ".unar/";

}  // namespace

EntryProcessor::EntryProcessor(const OptionValues& options, WorkList& workList, const std::string& archiveName,
                               int level)
    : _options(options), _workList(workList), _archiveName(archiveName), _level(level) {}

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

    action = entry->algorithm == ZOV_SPACE::kAlgorithmUnknown ? ZOV_SPACE::kActionCopy : ZOV_SPACE::kActionDecompress;
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

std::string EntryProcessor::derivedName(const ArchiveEntryInfo& entry) const {
    std::string inner = entry.name.substr(0, entry.name.find('\0'));
    inner.erase(0, inner.find_first_not_of('/'));
    if (inner.empty()) inner = std::to_string(_sequence);
    std::string name = _archiveName + kFolderSuffix + inner;
    if (name.size() > kLongestName) name.erase(0, name.size() - kLongestName);
    return name;
}

std::unique_ptr<OutputStream> EntryProcessor::queue(const ArchiveEntryInfo& entry) {
    const auto announced = static_cast<unsigned int>(entry.uncompressedSize);
    const auto capacity = std::min<unsigned int>(announced, WrappedLimitedBufferBase::kHighestLimit);
    auto content = std::make_unique<SmartBufferBase>(static_cast<long>(capacity));
    if (!content->isValid()) kUnit.raise<ZOV_SPACE::OutOfMemoryException>("Out of memory");
    auto buffer = std::make_unique<WrappedLimitedBufferBase>(std::move(content), _options.maxSize);
    auto out = std::make_unique<ZOV_SPACE::BufferBaseOutputStream>(buffer.get());
    _workList.push_back({std::move(buffer), _level, derivedName(entry)});
    return out;
}
