#include "ScanPipeline.h"

#include <memory>
#include <new>
#include <utility>

#include "Exception.h"
#include "HostFace.h"
#include "ScanJob.h"
#include "VoleOptions.h"
#include "VoleUtil.h"
#include "io/SmartBufferBase.h"
#include "util/Diag.h"
#include "voleeng.h"

namespace {

constexpr diag::Unit kDiag{"pattern_assistant"};

int codeOf(ScanJob::End end) {
    switch (end) {
        case ScanJob::End::found:
            return VOLE_FOUND;
        case ScanJob::End::unreadable:
            return VOLE_CANNOT_READ;
        case ScanJob::End::workedOff:
            break;
    }
    return VOLE_CLEAN;
}

}  // namespace

int scanDescriptor(int fd, unsigned int size, const std::string& name, std::string& virusName) {
    std::unique_ptr<ZOV_SPACE::SmartBufferBase> file = VoleUtil::getSmartBufferBase(fd, size);
    if (!file) return VOLE_CANNOT_READ;
    HostFace face(VoleOptions::get());
    ScanJob job(face);
    try {
        job.begin(std::move(file), name);
    } catch (const std::bad_alloc&) {
        kDiag.at(1263).err("Cannot create ArchEntry.");
        return VOLE_NO_ENTRY;
    }
    try {
        return codeOf(job.run(virusName));
    } catch (ZOV_SPACE::Exception& e) {
        kDiag.at(1326).err("Unarchiver raise exception: %s", e.toString());
        return VOLE_SCAN_FAILED;
    }
}
