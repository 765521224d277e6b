// ZipEndCentralDir: the end record, which counts the members and says where the central directory lies.
#ifndef PAKFOLD_ZIP_ZIPENDCENTRALDIR_H
#define PAKFOLD_ZIP_ZIPENDCENTRALDIR_H

#include <array>
#include <cstdint>

#include "io/BufferBase.h"
#include "io/InputStream.h"

namespace ZOV_SPACE {

// The end record.
class ZipEndCentralDir {
public:
    // Where the last end record begins, searched for in the last 64 KiB; 0 when there is none.
    static long findPos(BufferBase& buffer);

    // False when no whole end record follows.
    bool read(InputStream& in);

    // Where readers may take the directory to begin that belongs to this record, which is at `position`, and the offset
    // that the archive gives it. They go by its size or by its offset, and not all go by the records of ZIP64, if there
    // are some. A start below 0: none.
    struct Place {
        std::int64_t start;
        std::int64_t offset;
    };
    std::array<Place, 4> directoryPlaces(BufferBase& buffer, long position) const;

    unsigned short disk = 0;  // That the record is on.
    unsigned short directoryDisk = 0;
    unsigned short entryCount = 0;
    unsigned int directorySize = 0;    // Bytes.
    unsigned int directoryOffset = 0;  // From the archive's start.
    unsigned short commentLength = 0;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_ZIPENDCENTRALDIR_H
