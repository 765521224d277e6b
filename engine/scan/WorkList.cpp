#include "WorkList.h"

#include <algorithm>
#include <utility>

namespace {

// Of the folder, in names, that an archive's entries lie in: the archive itself may be an entry with its own name.
constexpr std::string_view kFolderSuffix = ".unar/";

// What a record takes besides its texts, and what a buffer takes besides its content: allocators round up.
constexpr std::int64_t kRecordBytes = sizeof(_st_ArchEntry) + 4 * sizeof(void*);
constexpr std::int64_t kBufferBytes = 512;

std::int64_t textBytes(const _st_ArchEntry& record) {
    std::size_t bytes = record.name.ownBytes();
    if (record.early) {
        const EarlyScan& early = *record.early;
        bytes +=
            early.virusName.size() + early.dumpDirectory.size() + early.scanLines.bytes() + early.formatLines.bytes();
    }
    return static_cast<std::int64_t>(bytes);
}

std::string_view tailOf(std::string_view text) {
    return text.substr(text.size() - std::min(text.size(), ContentName::kLongest));
}

}  // namespace

ContentName::ContentName(std::shared_ptr<const std::string> archive, std::string_view member)
    : _archive(std::move(archive)), _own(tailOf(member)) {}

std::string ContentName::text() const {
    if (!_archive) return _own;
    std::string name = *_archive;
    name.append(kFolderSuffix).append(_own);
    return std::string(tailOf(name));
}

_st_ArchEntry& WorkList::append(_st_ArchEntry record) {
    _st_ArchEntry& added = _records.emplace_back(std::move(record));
    ++_count;
    count(added, kRecordBytes + textBytes(added));
    return added;
}

_st_ArchEntry WorkList::takeFirst() {
    count(_records.front(), 0);
    _st_ArchEntry first = std::move(_records.front());
    _records.pop_front();
    --_count;
    return first;
}

bool WorkList::recount(_st_ArchEntry& record) {
    const std::int64_t content = record.buffer ? kBufferBytes + record.buffer->getSize() : 0;
    count(record, kRecordBytes + textBytes(record) + content);
    return hasRoom();
}

void WorkList::count(_st_ArchEntry& record, std::int64_t bytes) {
    _waiting += bytes - std::exchange(record.countedBytes, bytes);
}
