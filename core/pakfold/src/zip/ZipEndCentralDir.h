// ZipEndCentralDir: the end record, which counts the members and says where the central directory lies.
#ifndef PAKFOLD_ZIP_ZIPENDCENTRALDIR_H
#define PAKFOLD_ZIP_ZIPENDCENTRALDIR_H

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

    unsigned short disk = 0;  // That the record is on.
    unsigned short directoryDisk = 0;
    unsigned short entryCount = 0;
    unsigned int directorySize = 0;    // Bytes.
    unsigned int directoryOffset = 0;  // From the archive's start.
    unsigned short commentLength = 0;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_ZIPENDCENTRALDIR_H
