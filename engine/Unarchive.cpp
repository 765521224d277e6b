#include "Unarchive.h"

#include <new>
#include <stdexcept>

#include "Exception.h"
#include "VoleUtil.h"
#include "util/Diag.h"
#include "voleeng.h"

namespace {

constexpr diag::Unit kDiag{"pattern_assistant"};

// No archive format has a recogniser yet, so within the depth limit every content is a plain file.
void openArchive(const OptionValues& options, const _st_ArchEntry& record) {
    if (static_cast<unsigned>(record.level) >= static_cast<unsigned>(options.maxDepth)) {
        kDiag.at(1213).dbg("Reach the unarchive depth limit. ASSERT(%d < %d).", record.level, options.maxDepth);
    }
}

}  // namespace

int unarchiveOneFile(const OptionValues& options, WorkList& workList, const _st_ArchEntry& record) {
    kDiag.at().dbg("UnarchiveOneFile: bb @%p, list_size=%d, name=[%s], level=%d.",
                   static_cast<void*>(record.buffer.get()), static_cast<int>(workList.size()), record.name.c_str(),
                   record.level);
    if (!record.buffer) return VOLE_CANNOT_READ;
    try {
        if (record.level != 0) VoleUtil::dumpBufferBase(record.buffer.get(), record.name);
        openArchive(options, record);
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
