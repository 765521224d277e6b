#include "Unarchive.h"

#include <new>
#include <stdexcept>

#include "EntryProcessor.h"
#include "Exception.h"
#include "VoleUtil.h"
#include "io/BufferBaseStreams.h"
#include "unarchiver/VoleEngineFactory.h"
#include "util/Diag.h"
#include "voleeng.h"

namespace {

constexpr diag::Unit kDiag{"pattern_assistant"};

// The format of a record's content; ARCHIVEID_NONE also where archives are nested too deep to be looked at.
const ZOV_SPACE::ArchiveId& formatOf(const OptionValues& options, const _st_ArchEntry& record) {
    if (static_cast<unsigned>(record.level) >= static_cast<unsigned>(options.maxDepth)) {
        kDiag.at(1213).dbg("Reach the unarchive depth limit. ASSERT(%d < %d).", record.level, options.maxDepth);
        return ZOV_SPACE::ARCHIVEID_NONE;
    }
    ZOV_SPACE::BufferBaseInputStream content(record.buffer.get());
    return ZOV_SPACE::VoleEngineFactory::identify(content);
}

void openArchive(const OptionValues& options, WorkList& workList, const _st_ArchEntry& record) {
    const ZOV_SPACE::ArchiveId& format = formatOf(options, record);
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
        if (record.level != 0) VoleUtil::dumpBufferBase(record.buffer.get(), record.name);
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
