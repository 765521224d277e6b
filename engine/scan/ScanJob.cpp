#include "ScanJob.h"

#include <utility>

#include "ArchiveStep.h"
#include "ContentScan.h"
#include "util/Diag.h"

namespace {

constexpr diag::Unit kDiag{"pattern_assistant"};

}  // namespace

void ScanJob::begin(std::unique_ptr<ZOV_SPACE::BufferBase> content, std::string name) {
    _workList.append({std::move(content), 0, ContentName(std::move(name))});
}

ScanJob::End ScanJob::run(std::string& virusName) {
    const ZOV_SPACE::ScanBudget::Scope spending(_budget);
    End end = End::workedOff;
    while (!_workList.empty()) {
        ZOV_SPACE::ScanBudget::worked(0);
        const _st_ArchEntry record = _workList.takeFirst();
        if (takeTurn(record, virusName)) {
            end = End::found;
            break;
        }
        // What could not be unarchived has been logged; members queued before that are still scanned.
        static_cast<void>(unarchiveOneFile(_face, _workList, record));
        if (sourceFailed(record)) end = End::unreadable;
    }
    logDropped();
    return end;
}

// True when the content has a finding that decides.
bool ScanJob::takeTurn(const _st_ArchEntry& record, std::string& virusName) {
    if (!record.early) return scanContent(_face, record, *record.buffer, virusName);
    record.early->scanLines.deliver();
    if (record.early->found) virusName = record.early->virusName;
    return record.early->found;
}

// A file is read as the scan goes. When it failed, what was seen of it proves nothing.
bool ScanJob::sourceFailed(const _st_ArchEntry& record) {
    if (!record.buffer || !record.buffer->sourceFailed()) return false;
    _face.onUnseen(Unseen::io, record, nullptr, "the content could not be read to its end");
    return true;
}

void ScanJob::logDropped() const {
    for (const _st_ArchEntry& record : _workList) {
        kDiag.at().dbg(" ### Deleting arch_entry [%s] ...", record.name.text().c_str());
    }
}
