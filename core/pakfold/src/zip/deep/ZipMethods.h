// ZipMethods: the compression methods that the deep walk decodes: stored, deflated, and those that are registered.
#ifndef PAKFOLD_ZIP_DEEP_ZIPMETHODS_H
#define PAKFOLD_ZIP_DEEP_ZIPMETHODS_H

#include <cstdint>

#include "io/InputStream.h"
#include "io/OutputStream.h"

namespace ZOV_SPACE {

struct ZipPacked {
    std::int64_t packedSize;
    std::int64_t unpackedSize;  // As it is announced; for methods that need to know it.
    unsigned flags;             // Of the member.
    std::uint32_t checkSum;     // As it is announced.
};

struct ZipMethod {
    unsigned number;
    int algorithm;    // As ArchiveEntryInfo has it.
    bool endsItself;  // The data says where it ends, so that it decodes to the same with any number of bytes behind it.
    // Decodes from a stream that supports marks. Returns how many packed bytes are left behind the data. Throws
    // CompressionException for data that cannot be decoded, and what the streams throw; what could be decoded has been
    // written.
    std::int64_t (*decode)(InputStream& in, const ZipPacked& packed, OutputStream& out);
};

// Makes a method known, while the library is loaded. True.
bool registerZipMethod(const ZipMethod& method);
const ZipMethod* findZipMethod(unsigned number);  // Null for one that nobody here can decode.

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_DEEP_ZIPMETHODS_H
