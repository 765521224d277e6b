// ZipInfo.h: the records of the ZIP format (APPNOTE.TXT, PKWARE), read from streams. All numbers are little-endian.
// Nothing that a record says is checked against the data, except where said.
#ifndef PAKFOLD_ZIP_ZIPINFO_H
#define PAKFOLD_ZIP_ZIPINFO_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "io/InputStream.h"
#include "zip/ZipCentralDir.h"
#include "zip/ZipEndCentralDir.h"

namespace ZOV_SPACE {

// The local header of the current entry, and what follows the last entry.
class ZipInfo {
public:
    static constexpr std::size_t kMostCentralDirs = 65535;

    // Reads a local header, with the name and the extra field unless `headerOnly`. The caller has marked the stream
    // there. False when none follows. When the sizes follow the data, checksum and sizes stay as they were.
    //   Throws:  ArchivingException "encrypted ZIP entry", "bad entry name"; IOException "unexpected EOF" inside a
    //   name;
    //            OutOfMemoryException "Out of memory".
    // `lenient`: encrypted entries and names of any length are read, too, and the end of the stream inside a name
    // or an extra field throws an ArchivingException.
    bool read(InputStream& in, bool headerOnly, bool lenient = false);

    bool isEncrypted() const { return (flags & 0x0001) != 0; }
    // Whether checksum and sizes follow the data, in a data descriptor.
    bool hasDataDescriptor() const { return (flags & 0x0008) != 0; }

    // Reads the data descriptor, with or without signature, if one follows; otherwise nothing is consumed and the
    // values stay: false. The stream must support marks. Never fails for lack of bytes.
    bool readDataDescriptor(InputStream& in);

    // Reads central directory entries into centralDirs: `count` of them, or as many as follow when it is -1.
    void readCentralDirs(InputStream& in, int count);

    unsigned short version = 0;
    unsigned short flags = 0;
    unsigned short method = 0;
    unsigned int time = 0;  // MS-DOS time in the low, date in the high 16 bits.
    unsigned int checkSum = 0;
    int compressedSize = 0;  // As stored: 2 GiB and above are negative.
    int uncompressedSize = 0;
    std::string name;
    std::vector<unsigned char> extra;

    std::vector<std::unique_ptr<ZipCentralDir>> centralDirs;
    ZipEndCentralDir end;

private:
    void readSizes(const char* header);
    void readVariablePart(InputStream& in, int nameLength, int extraLength, bool lenient);
    void takeLargeSizes();
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_ZIPINFO_H
