#include "WorkList.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "Text.h"

namespace {

// Of the folder, in names, that an archive's entries lie in: the archive itself may be an entry with its own name.
constexpr std::string_view kFolderSuffix = ".unar/";

// What a record takes besides its texts, and what a buffer takes besides its content: allocators round up.
constexpr std::int64_t kRecordBytes = sizeof(_st_ArchEntry) + 4 * sizeof(void*);
constexpr std::int64_t kBufferBytes = 512;

std::int64_t textBytes(const _st_ArchEntry& record) {
    std::size_t bytes = record.name.own().size();
    if (record.early) {
        const EarlyScan& early = *record.early;
        bytes +=
            early.virusName.size() + early.dumpDirectory.size() + early.scanLines.bytes() + early.formatLines.bytes();
    }
    return static_cast<std::int64_t>(bytes);
}

}  // namespace

ContentName::~ContentName() {
    std::shared_ptr<const ContentName> name = std::move(_archive);
    while (name && name.use_count() == 1) {
        std::shared_ptr<const ContentName> next = std::move(name->_archive);
        name = std::move(next);
    }
}

std::string ContentName::ownText() const {
    if (!_archive) return _own;
    const std::string_view text = ZOV_SPACE::text::trimStart(ZOV_SPACE::text::upTo(_own, '\0'), "/");
    return text.empty() ? std::to_string(_number) : std::string(text);
}

// Put together from the end, so that what does not count costs nothing, however deep archives lie in archives.
std::string ContentName::text() const {
    std::vector<std::string> parts;
    std::size_t bytes = 0;
    for (const ContentName* name = this; name && bytes < kLongestText; name = name->archive()) {
        if (name != this) parts.emplace_back(kFolderSuffix);
        parts.push_back(name->ownText());
        bytes += parts.back().size();
    }
    std::string text;
    for (auto part = parts.rbegin(); part != parts.rend(); ++part) text += *part;
    return text.substr(text.size() - std::min(text.size(), kLongestText));
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
