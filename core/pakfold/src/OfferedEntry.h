// OfferedEntry: one entry of an archive from the processor's answer to its end, for walks that decode it in one go and
// go on whatever comes of it. Borrows what it is made of; used by one thread.
#ifndef PAKFOLD_OFFEREDENTRY_H
#define PAKFOLD_OFFEREDENTRY_H

#include <functional>
#include <memory>
#include <string>

#include "unarchiver/Pakfold.h"

namespace ZOV_SPACE {

class OfferedEntry {
public:
    using Write = std::function<void(OutputStream& out)>;

    // Asks the processor. Throws ArchivingException "Archiving aborted", and what the processor throws.
    OfferedEntry(ArchiveEntryProcessor& entries, ArchiveEntryInfo& entry);

    bool isTaken() const { return _out != nullptr; }
    // Has the entry's bytes written, and ends it. They count against the scan's budget. A failure to decode them is
    // told, and what was written before stays; an output that wants no more ends the entry. Throws
    // OutOfBudgetException, OutOfMemoryException and what the processor throws.
    // REQUIRES: isTaken(), and not called before.
    void fill(const Write& write);
    void tell(ArchiveTrouble what, const std::string& text) const { _entries.trouble(what, &_entry.name, text); }

private:
    ArchiveEntryProcessor& _entries;
    ArchiveEntryInfo& _entry;
    std::unique_ptr<OutputStream> _out;
};

// A size as entries have it: 32 bits, the largest number standing for all that are larger.
int entrySize(std::int64_t bytes);

// Copies a part of a buffer, into the output's own memory where that lends it.
void copyRange(BufferBase& buffer, std::int64_t start, std::int64_t size, OutputStream& out);

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_OFFEREDENTRY_H
