#include "Unarchive.h"

#include <new>
#include <stdexcept>
#include <utility>

#include "ContentScan.h"
#include "EntryProcessor.h"
#include "Exception.h"
#include "VoleUtil.h"
#include "util/Diag.h"
#include "voleeng.h"

namespace {

constexpr diag::Unit kDiag{"pattern_assistant"};

// Below the directory that was set when the content was scanned.
void dumpContent(const _st_ArchEntry& record, const std::string& name) {
    const bool isMember = record.level != 0;
    if (!isMember || !record.buffer) return;
    VoleUtil::dumpBufferBase(record.buffer.get(), name, record.early ? record.early->dumpDirectory : diag::dumpPath());
}

void openArchive(const OptionValues& options, WorkList& workList, const _st_ArchEntry& record, std::string name) {
    const ZOV_SPACE::ArchiveId& format = formatOf(record, options.maxDepth);
    if (&format == &ZOV_SPACE::ARCHIVEID_NONE) return;
    kDiag.at().dbg("Archiver found !!");
    EntryProcessor entries(options, workList, std::move(name), record.level + 1);
    format.unarchiver(record.buffer.get(), entries, nullptr)->start();
}

}  // namespace

int unarchiveOneFile(const OptionValues& options, WorkList& workList, const _st_ArchEntry& record) {
    try {
        std::string name = record.name.text();
        // The address tells records apart in the log, also those whose content is gone.
        const void* const content = record.buffer ? static_cast<const void*>(record.buffer.get()) : &record;
        kDiag.at().dbg("UnarchiveOneFile: bb @%p, list_size=%d, name=[%s], level=%d.", content,
                       static_cast<int>(workList.size()), name.c_str(), record.level);
        if (!record.buffer && !record.early) return VOLE_CANNOT_READ;
        dumpContent(record, name);
        openArchive(options, workList, record, std::move(name));
        return 0;
    } catch (ZOV_SPACE::Exception& e) {
        kDiag.at().err("Unarchive Exception: %s", e.toString());
    } catch (const std::bad_alloc&) {
        kDiag.at().err("Unarchive Exception: %s", "Out of memory");
    } catch (const std::length_error&) {
        kDiag.at().err("Unarchive Exception: %s", "Out of memory");
    }
    return VOLE_SCAN_FAILED;
}
