#include "ScanPipeline.h"

#include <new>
#include <utility>

#include "Exception.h"
#include "Normalize.h"
#include "PatternSlot.h"
#include "Unarchive.h"
#include "VoleOptions.h"
#include "VoleScanner.h"
#include "VoleUtil.h"
#include "io/IOBuffer.h"
#include "unarchiver/ScanBudget.h"
#include "util/Diag.h"
#include "voleeng.h"

namespace {

using ZOV_SPACE::Exception;
using ZOV_SPACE::IOBuffer;
using ZOV_SPACE::SmartBufferBase;

constexpr diag::Unit kDiag{"pattern_assistant"};

bool scanMd5(const BmList& list, IOBuffer& content, unsigned int size, std::string& virusName) {
    try {
        return list.count() != 0 && Md5Scanner(list).scan(&content, size, virusName);
    } catch (Exception& e) {
        kDiag.at().err("catch Exception from md5Scanner: %s", e.toString());
        return false;
    }
}

bool scanCheckSums(const CheckSumList& list, IOBuffer& content, unsigned int size, std::string& virusName) {
    try {
        return list.count() != 0 && ChkScanner(list).scan(&content, size, virusName, kTargetAny);
    } catch (Exception& e) {
        kDiag.at().err("catch Exception from chkScanner: %s", e.toString());
        return false;
    }
}

// Both scanners over one content, with the signatures that are active now.
bool scanRaw(IOBuffer& content, long size, std::string& virusName) {
    const SlotLease slot = SlotLease::acquire();
    if (!slot) return false;
    const auto bytes = static_cast<unsigned int>(size);
    return scanMd5(slot->patterns->md5List(), content, bytes, virusName) ||
           scanCheckSums(slot->patterns->checkSumList(), content, bytes, virusName);
}

bool rawPass(IOBuffer& content, std::string& virusName) {
    long size = 0;
    bool found = false;
    try {
        size = content.getSize();
        found = scanRaw(content, size, virusName);
    } catch (Exception& e) {
        kDiag.at().err("%s", e.toString());
    }
    kDiag.at(1287).dbg("scan raw file, scanned %ld bytes, return %d.", size, found);
    return found;
}

std::unique_ptr<SmartBufferBase> normalizedText(IOBuffer& content) {
    std::unique_ptr<SmartBufferBase> text;
    try {
        text = normalize(&content);
    } catch (Exception& e) {
        kDiag.at().err("%s", e.toString());
    }
    kDiag.at(1295).dbg("return from normalize_iob, size=%d", text ? static_cast<int>(text->getSize()) : 0);
    return text;
}

bool normalizedPass(IOBuffer& content, std::string& virusName) {
    const auto text = normalizedText(content);
    if (!text) return false;
    IOBuffer cursor(text.get());
    const long size = cursor.getSize();
    const bool found = scanRaw(cursor, size, virusName);
    kDiag.at(1298).dbg("scan normalized raw file, scanned %ld bytes, return %d.", size, found);
    return found;
}

bool scanRecord(const _st_ArchEntry& record, std::string& virusName) {
    IOBuffer content(record.buffer.get());
    return rawPass(content, virusName) || normalizedPass(content, virusName);
}

// Whether the file under the buffer, which is read as the scan goes, failed it: what was seen of it proves nothing.
bool sourceFailed(const _st_ArchEntry& record) {
    const auto* const buffer = dynamic_cast<const SmartBufferBase*>(record.buffer.get());
    return buffer && buffer->sourceFailed();
}

// Works the list off: VOLE_FOUND at the first match, VOLE_CANNOT_READ when some content could not be read, VOLE_CLEAN.
int scanAll(WorkList& workList, const OptionValues& options, std::string& virusName) {
    bool unreadable = false;
    while (!workList.empty()) {
        const _st_ArchEntry record = std::move(workList.front());
        workList.pop_front();
        if (scanRecord(record, virusName)) return VOLE_FOUND;
        // What could not be unarchived has been logged; entries queued before that are still scanned.
        static_cast<void>(unarchiveOneFile(options, workList, record));
        unreadable = unreadable || sourceFailed(record);
    }
    return unreadable ? VOLE_CANNOT_READ : VOLE_CLEAN;
}

void logDropped(const WorkList& workList) {
    for (const _st_ArchEntry& record : workList) {
        kDiag.at().dbg(" ### Deleting arch_entry [%s] ...", record.name.c_str());
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
        workList.push_back({std::move(file), 0, name});
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
