#include "SetImage.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <mutex>
#include <utility>

#include "CompiledSet.h"
#include "SharedMemory.h"

namespace isolation {
namespace {

// Nothing, with errno set, when it cannot be had. Nobody can write to it any more.
ZOV_SPACE::OwnFd compiledCopy(const vole_signatures& set) {
    ZOV_SPACE::OwnFd file = memoryFile("vole-signatures");
    if (!file) return {};
    errno = compiled::writeSet(set, file.get());
    const bool sealed = errno == 0 && ::fchmod(file.get(), S_IRUSR) == 0 &&
                        ::fcntl(file.get(), F_ADD_SEALS, F_SEAL_WRITE | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) == 0;
    return sealed ? std::move(file) : ZOV_SPACE::OwnFd();
}

}  // namespace

std::shared_ptr<const SetImage> imageOf(const vole_signatures& set) {
    const std::lock_guard lock(set.imageMutex);
    if (auto image = set.image.lock()) return image;
    ZOV_SPACE::OwnFd file = set.file.bytes().empty() ? compiledCopy(set) : set.file.duplicate();
    if (!file) return nullptr;
    auto image = std::make_shared<const SetImage>(std::move(file));
    set.image = image;
    return image;
}

}  // namespace isolation
