#include "ScanPipeline.h"

#include <memory>
#include <new>
#include <utility>

#include "ContentScan.h"
#include "Exception.h"
#include "Unarchive.h"
#include "VoleOptions.h"
#include "VoleUtil.h"
#include "WorkList.h"
#include "unarchiver/ScanBudget.h"
#include "util/Diag.h"
#include "voleeng.h"

namespace {

using ZOV_SPACE::Exception;
using ZOV_SPACE::SmartBufferBase;

constexpr diag::Unit kDiag{"pattern_assistant"};

bool recordMatches(const _st_ArchEntry& record, std::string& virusName) {
    if (!record.early) return scanContent(*record.buffer, virusName);
    record.early->scanLines.deliver();
    if (record.early->found) virusName = record.early->virusName;
    return record.early->found;
}

// Works the list off: VOLE_FOUND at the first match, VOLE_CANNOT_READ when some content could not be read, VOLE_CLEAN.
int scanAll(WorkList& workList, const OptionValues& options, std::string& virusName) {
    bool unreadable = false;
    while (!workList.empty()) {
        const _st_ArchEntry record = workList.takeFirst();
        if (recordMatches(record, virusName)) return VOLE_FOUND;
        // What could not be unarchived has been logged; entries queued before that are still scanned.
        static_cast<void>(unarchiveOneFile(options, workList, record));
        // A file is read as the scan goes. When it failed, what was seen of it proves nothing.
        unreadable = unreadable || (record.buffer && record.buffer->sourceFailed());
    }
    return unreadable ? VOLE_CANNOT_READ : VOLE_CLEAN;
}

void logDropped(const WorkList& workList) {
    for (const _st_ArchEntry& record : workList) {
        kDiag.at().dbg(" ### Deleting arch_entry [%s] ...", record.name.text().c_str());
    }
}

}  // namespace

int scanDescriptor(int fd, unsigned int size, const std::string& name, std::string& virusName) {
    ZOV_SPACE::ScanBudget budget;
    const ZOV_SPACE::ScanBudget::Scope spending(budget);
    WorkList workList;
    std::unique_ptr<SmartBufferBase> file = VoleUtil::getSmartBufferBase(fd, size);
    if (!file) return VOLE_CANNOT_READ;
    const OptionValues options = VoleOptions::get();
    try {
        workList.append({std::move(file), 0, ContentName(name)});
    } catch (const std::bad_alloc&) {
        kDiag.at(1263).err("Cannot create ArchEntry.");
        return VOLE_NO_ENTRY;
    }
    try {
        const int result = scanAll(workList, options, virusName);
        logDropped(workList);
        return result;
    } catch (Exception& e) {
        kDiag.at(1326).err("Unarchiver raise exception: %s", e.toString());
        return VOLE_SCAN_FAILED;
    }
}
