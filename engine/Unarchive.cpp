#include "Unarchive.h"

#include <new>
#include <stdexcept>

#include "ContentScan.h"
#include "EntryProcessor.h"
#include "Exception.h"
#include "VoleUtil.h"
#include "util/Diag.h"
#include "voleeng.h"

namespace {

constexpr diag::Unit kDiag{"pattern_assistant"};

void openArchive(const OptionValues& options, WorkList& workList, const _st_ArchEntry& record) {
    const ZOV_SPACE::ArchiveId& format = formatOf(record, options.maxDepth);
    if (&format == &ZOV_SPACE::ARCHIVEID_NONE) return;
    kDiag.at().dbg("Archiver found !!");
    EntryProcessor entries(options, workList, record.name, record.level + 1);
    format.unarchiver(record.buffer.get(), entries, nullptr)->start();
}

}  // namespace

int unarchiveOneFile(const OptionValues& options, WorkList& workList, const _st_ArchEntry& record) {
    kDiag.at().dbg("UnarchiveOneFile: bb @%p, list_size=%d, name=[%s], level=%d.",
                   static_cast<void*>(record.buffer.get()), static_cast<int>(workList.size()), record.name.c_str(),
                   record.level);
    if (!record.buffer) return VOLE_CANNOT_READ;
    try {
        const bool hasContent = !record.early || !record.early->contentLetGo;
        if (record.level != 0 && hasContent) VoleUtil::dumpBufferBase(record.buffer.get(), record.name);
        openArchive(options, workList, record);
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
