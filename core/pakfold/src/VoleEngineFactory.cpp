#include "unarchiver/VoleEngineFactory.h"

#include <utility>

#include "rar/RarUnarchiver.h"
#include "utils/Crc.h"
#include "zip/ZipUnarchiver.h"

namespace ZOV_SPACE {

std::vector<std::unique_ptr<ArchiveId>>* VoleEngineFactory::factory = nullptr;
constinit Mutex VoleEngineFactory::mutex;
std::vector<std::unique_ptr<ArchiveId>>* ArchiveFactory::factory = nullptr;
constinit Mutex ArchiveFactory::mutex;
std::vector<std::unique_ptr<ArchiveId>>* PackFactory::factory = nullptr;
constinit Mutex PackFactory::mutex;

void VoleEngineFactory::registerId(std::unique_ptr<ArchiveId> id) {
    const Monitor guard(mutex);
    // Never destroyed: scans on other threads may outlive the library's static objects.
    if (!factory) factory = std::make_unique<std::vector<std::unique_ptr<ArchiveId>>>().release();
    factory->push_back(std::move(id));
}

const ArchiveId& VoleEngineFactory::identify(InputStream& in) {
    if (factory) {
        for (const auto& id : *factory) {
            if (id->accept(in)) return *id;
        }
    }
    return ARCHIVEID_NONE;
}

namespace {

// The order is the order in which formats are tried.
[[maybe_unused]] const bool registered = [] {
    VoleEngineFactory::registerId(std::make_unique<CrcArchiveId<ZipUnarchiver, Iso3309Crc>>());
    VoleEngineFactory::registerId(std::make_unique<CrcArchiveId<RarUnarchiver, RarCrc>>());
    return true;
}();

}  // namespace

}  // namespace ZOV_SPACE
