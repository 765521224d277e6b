// WorkList.h: what a scan has still to report on.
//
// A scan takes contents off the front of its list and appends what it finds in them. Very many small ones may wait, so
// a record whose content is needed no more keeps a few hundred bytes, and nothing that is done per record costs more
// the longer the list is. The list counts what waits on it, so that a scan can be bounded whatever its options allow.
#ifndef ENGINE_SCAN_WORKLIST_H
#define ENGINE_SCAN_WORKLIST_H

#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "io/BufferBase.h"
#include "unarchiver/Pakfold.h"
#include "util/Diag.h"

// What scanning a content before its turn gave, and what was in force then.
struct EarlyScan {
    bool found = false;
    // Which archive format the content has, ARCHIVEID_NONE for most; null when nobody looked.
    const ZOV_SPACE::ArchiveId* format = nullptr;
    std::string virusName;
    std::string dumpDirectory;
    diag::HeldLines scanLines;
    diag::HeldLines formatLines;
};

// The name of a content: its own, and for a member that of the archive it is in, which all members share, so that long
// names do not multiply.
class ContentName {
public:
    static constexpr std::size_t kLongestText = 4096;  // Bytes.

    explicit ContentName(std::string name) : _own(std::move(name)) {}
    // `own` as it stands in the archive, of which this is the member with that number, counted from 0.
    ContentName(std::shared_ptr<const ContentName> archive, std::string own, int number)
        : _archive(std::move(archive)), _own(std::move(own)), _number(number) {}
    ContentName(const ContentName&) = default;
    ContentName(ContentName&&) = default;
    ContentName& operator=(const ContentName&) = delete;
    ~ContentName();  // Without recursion, however long the chain of archives is that nothing else names.

    const std::string& own() const { return _own; }
    const ContentName* archive() const { return _archive.get(); }  // Null for what is no member.

    // One text for all of it: the archive's with ".unar/" behind it and the name without its slashes in front and what
    // follows a NUL, or the number where that leaves nothing. Of a longer one the last kLongestText bytes.
    std::string text() const;

private:
    std::string ownText() const;

    mutable std::shared_ptr<const ContentName> _archive;  // Changed by the destructor of what it names only.
    std::string _own;
    int _number = 0;
};

// What the check-sum that an archive gives of a member says of what came out.
enum class CheckSumState : std::uint8_t { none, right, wrong };  // none: there is none, or not all came out.

// What its archive says of a member.
struct MemberFacts {
    const char* method = "";       // As ArchiveEntryInfo has it.
    std::uint32_t packedSize = 0;  // Bytes; the largest number stands for all that are larger.
    CheckSumState checkSum = CheckSumState::none;
};

// One content on the work list.
struct _st_ArchEntry {
    std::unique_ptr<ZOV_SPACE::BufferBase> buffer;  // Null once the content was scanned and is needed no more.
    int level;                                      // Archive nesting; 0 for the file itself.
    ContentName name;
    std::optional<EarlyScan> early = std::nullopt;
    std::int64_t countedBytes = 0;  // Kept by the list.
    bool isPacked = false;          // The bytes are what nobody here can unpack, and not the member's own.
    MemberFacts member = {};
};

class WorkList {
public:
    // Bytes that may wait in one scan: contents, in memory and in files, and their records.
    static constexpr std::int64_t kMostWaiting = std::int64_t{1} << 30;

    explicit WorkList(std::int64_t mostWaiting = kMostWaiting) : _mostWaiting(mostWaiting) {}

    bool empty() const { return _count == 0; }
    std::size_t size() const { return _count; }
    auto begin() const { return _records.begin(); }
    auto end() const { return _records.end(); }

    // The record stays where it is until it is taken. Its content counts from the first recount() on.
    _st_ArchEntry& append(_st_ArchEntry record);
    _st_ArchEntry takeFirst();  // REQUIRES: not empty.

    // Counts anew what a record of the list keeps; whether all that waits is within the bound.
    bool recount(_st_ArchEntry& record);
    bool hasRoom() const { return _waiting <= _mostWaiting; }

private:
    void count(_st_ArchEntry& record, std::int64_t bytes);

    std::list<_st_ArchEntry> _records;
    std::size_t _count = 0;  // The list's own count walks over it where strings have the legacy layout.
    std::int64_t _mostWaiting;
    std::int64_t _waiting = 0;
};

#endif  // ENGINE_SCAN_WORKLIST_H
