// The registries of archive formats. VoleEngineFactory has those that the engine knows, registered when the library is
// loaded: ZIP, then RAR; it is only read afterwards, by any thread. The other two stay empty.
#ifndef PAKFOLD_UNARCHIVER_VOLEENGINEFACTORY_H
#define PAKFOLD_UNARCHIVER_VOLEENGINEFACTORY_H

#include <memory>
#include <vector>

#include "Mutex.h"
#include "unarchiver/Pakfold.h"

namespace ZOV_SPACE {

class VoleEngineFactory {
public:
    // Appends a format, which is kept until the process ends.
    static void registerId(std::unique_ptr<ArchiveId> id);
    // The first registered format that accepts the stream, ARCHIVEID_NONE when there is none.
    static const ArchiveId& identify(InputStream& in);

    static std::vector<std::unique_ptr<ArchiveId>>* factory;  // Null until the first registration.
    static Mutex mutex;                                       // For the vector's creation.
};

class ArchiveFactory {
public:
    static std::vector<std::unique_ptr<ArchiveId>>* factory;
    static Mutex mutex;
};

class PackFactory {
public:
    static std::vector<std::unique_ptr<ArchiveId>>* factory;
    static Mutex mutex;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_UNARCHIVER_VOLEENGINEFACTORY_H
