#include "ArchiveStep.h"

#include <new>
#include <stdexcept>
#include <string>

#include "ContentScan.h"
#include "EntryProcessor.h"
#include "Exception.h"
#include "VoleUtil.h"
#include "unarchiver/ScanBudget.h"
#include "util/Diag.h"

namespace {

constexpr diag::Unit kDiag{"pattern_assistant"};

// Below the directory that was set when the content was scanned.
void dumpContent(const _st_ArchEntry& record, const std::string& name) {
    const bool isMember = record.level != 0;
    if (!isMember || !record.buffer) return;
    const std::string directory = record.early ? record.early->dumpDirectory : diag::dumpDirectory();
    VoleUtil::dumpBufferBase(record.buffer.get(), name, directory);
}

void openArchive(ScanFace& face, WorkList& workList, const _st_ArchEntry& record) {
    const ZOV_SPACE::ArchiveId& format = formatOf(face, record);
    if (&format == &ZOV_SPACE::ARCHIVEID_NONE) return;
    kDiag.at().dbg("Archiver found !!");
    if (!face.opens(record)) return;
    EntryProcessor entries(face, workList, record);
    format.unarchiver(record.buffer.get(), entries, nullptr)->start();
}

// What a walk that failed leaves unseen.
Unseen unseenFor(const ZOV_SPACE::Exception& failure, const _st_ArchEntry& record) {
    if (dynamic_cast<const ZOV_SPACE::OutOfBudgetException*>(&failure)) return Unseen::workBudget;
    if (dynamic_cast<const ZOV_SPACE::OutOfMemoryException*>(&failure)) return Unseen::memory;
    const bool sourceFailed = record.buffer && record.buffer->sourceFailed();
    return sourceFailed ? Unseen::io : Unseen::damaged;
}

ArchiveEnd outOfMemory(ScanFace& face, const _st_ArchEntry& record) {
    kDiag.at().err("Unarchive Exception: %s", "Out of memory");
    face.onUnseen(Unseen::memory, record, nullptr, "memory ran out while the archive was unpacked");
    return ArchiveEnd::givenUp;
}

}  // namespace

ArchiveEnd unarchiveOneFile(ScanFace& face, WorkList& workList, const _st_ArchEntry& record) {
    try {
        const std::string name = record.name.text();
        // The address tells records apart in the log, also those whose content is gone.
        const void* const content = record.buffer ? static_cast<const void*>(record.buffer.get()) : &record;
        kDiag.at().dbg("UnarchiveOneFile: bb @%p, list_size=%d, name=[%s], level=%d.", content,
                       static_cast<int>(workList.size()), name.c_str(), record.level);
        if (!record.buffer && !record.early) return ArchiveEnd::noContent;
        dumpContent(record, name);
        openArchive(face, workList, record);
        return ArchiveEnd::done;
    } catch (const ZOV_SPACE::ScanStoppedException&) {
        throw;
    } catch (const LimitReachedException&) {
    } catch (ZOV_SPACE::Exception& e) {
        kDiag.at().err("Unarchive Exception: %s", e.toString());
        face.onUnseen(unseenFor(e, record), record, nullptr, e.toString());
    } catch (const std::bad_alloc&) {
        return outOfMemory(face, record);
    } catch (const std::length_error&) {
        return outOfMemory(face, record);
    }
    return ArchiveEnd::givenUp;
}
