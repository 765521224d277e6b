// EntryProcessor: takes the entries of one archive that is being scanned. Each entry that the face admits becomes a
// record on the work list, one level deeper than the archive, which receives the entry's unpacked bytes. When the walk
// says that the entry is at its end, its content is scanned; the result waits in the record for its turn.
//
// An entry that breaks a limit of its own is skipped; an archive with too many entries is given up by the face, one
// whose entries take more room than a scan has by throwing OutOfBudgetException. What was queued before stays queued.
// No record ever holds more than the face allows, whatever the archive said of the entry: announced sizes decide only
// whether the entry is taken and where it is stored.
//
// Memory of a member that was let go of serves the next one: fresh pages cost more than what is written into them.
#ifndef ENGINE_SCAN_ENTRYPROCESSOR_H
#define ENGINE_SCAN_ENTRYPROCESSOR_H

#include <memory>
#include <string>

#include "MemberSink.h"
#include "ScanFace.h"
#include "WorkList.h"
#include "io/SmartBufferBase.h"
#include "unarchiver/Pakfold.h"

class EntryProcessor : public ZOV_SPACE::ArchiveEntryProcessor {
public:
    // All are borrowed; `archive` is the record whose members come.
    EntryProcessor(ScanFace& face, WorkList& workList, const _st_ArchEntry& archive);
    ~EntryProcessor() override;

    std::unique_ptr<ZOV_SPACE::OutputStream> processEntry(ZOV_SPACE::ArchiveEntryInfo* entry, int& action) override;
    void endEntry(const ZOV_SPACE::ArchiveEntryInfo& entry, ZOV_SPACE::OutputStream& out) override;
    void trouble(ZOV_SPACE::ArchiveTrouble what, const std::string* member, const std::string& text) override;
    bool persists() const override { return _face.persists(); }
    std::unique_ptr<ZOV_SPACE::BufferBase> volume(int number) override { return _face.volume(_archive, number); }
    std::string archiveName() const override { return _archive.name.own(); }

private:
    std::unique_ptr<ZOV_SPACE::SmartBufferBase> storageFor(long announced);
    std::unique_ptr<ZOV_SPACE::OutputStream> queue(const ZOV_SPACE::ArchiveEntryInfo& entry, const MemberTerms& terms);
    void unseen(Unseen what, const std::string* member, const char* text) const;
    [[noreturn]] void giveUp(_st_ArchEntry& record);

    ScanFace& _face;
    WorkList& _workList;
    const _st_ArchEntry& _archive;
    std::shared_ptr<const ContentName> _archiveName;
    int _offered = 0;   // So far.
    int _sequence = 0;  // Accepted so far.
    // The member at hand.
    MemberSink* _sink = nullptr;  // Belongs to the walk, which ends it or lets it go before the next one comes.
    Unseen _beyond = Unseen::sizeLimit;
    bool _unpacked = false;  // Unlike one whose packed bytes are taken.
    bool _troubled = false;
    // Storage of a member before that is used again: fresh memory costs more than what is written into it.
    std::unique_ptr<ZOV_SPACE::SmartBufferBase> _spare;
    long _spareCapacity = 0;  // Bytes that storage was made for at most.
};

#endif  // ENGINE_SCAN_ENTRYPROCESSOR_H
