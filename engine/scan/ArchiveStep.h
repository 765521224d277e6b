// EntryProcessor: takes the entries of one archive that is being scanned. Each entry that passes the limits becomes a
// record on the work list, one level deeper than the archive, which receives the entry's unpacked bytes. When its
// stream is closed, the content is scanned at once; the result waits in the record for its turn.
//
// An entry that breaks a limit of its own is reported to the host and skipped; an archive with too many entries is
// given up by throwing UnarchivePolicyException, one whose entries take more room than a scan has by throwing
// OutOfBudgetException. What was queued before stays queued. No record ever holds more than the size limit, whatever
// the archive said of the entry: announced sizes decide only whether the entry is taken and where it is stored.
//
// Unpacked bytes are produced where they stay. The stream lends the record's own memory to the decoder, and memory of a
// member that was let go of serves the next one: fresh pages cost more than what is written into them. While one member
// is unpacked and scanned it may keep 16 MiB in memory; one that waits afterwards keeps what any buffer may.
#ifndef ENGINE_ENTRYPROCESSOR_H
#define ENGINE_ENTRYPROCESSOR_H

#include <memory>
#include <string>

#include "VoleOptions.h"
#include "WorkList.h"
#include "io/SmartBufferBase.h"
#include "unarchiver/Pakfold.h"

class EntryProcessor : public ZOV_SPACE::ArchiveEntryProcessor {
public:
    // `archiveName` is the name of the record that is the archive, `level` that of the entries. List and options are
    // borrowed.
    EntryProcessor(const OptionValues& options, WorkList& workList, std::string archiveName, int level);
    ~EntryProcessor() override;

    std::unique_ptr<ZOV_SPACE::OutputStream> processEntry(ZOV_SPACE::ArchiveEntryInfo* entry, int& action) override;

private:
    void checkCounts() const;
    bool passesLimits(unsigned int packedSize, unsigned int unpackedSize) const;
    ContentName nameOf(const ZOV_SPACE::ArchiveEntryInfo& entry) const;
    std::unique_ptr<ZOV_SPACE::SmartBufferBase> storageFor(long announced);
    std::unique_ptr<ZOV_SPACE::OutputStream> queue(const ZOV_SPACE::ArchiveEntryInfo& entry);

    const OptionValues& _options;
    WorkList& _workList;
    std::shared_ptr<const std::string> _archiveName;
    int _level;
    int _addedEntries = 0;  // Offered so far.
    int _sequence = 0;      // Accepted so far.
    // Storage of a member before that is used again: fresh memory costs more than what is written into it.
    std::unique_ptr<ZOV_SPACE::SmartBufferBase> _spare;
    long _spareCapacity = 0;  // Bytes that storage was made for at most.
};

#endif  // ENGINE_ENTRYPROCESSOR_H
