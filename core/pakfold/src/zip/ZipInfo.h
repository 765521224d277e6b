// ZipInfo.h: the records of the ZIP format (APPNOTE.TXT, PKWARE), read from streams. All numbers are little-endian.
// Nothing that a record says is checked against the data, except where said.
#ifndef PAKFOLD_ZIP_ZIPINFO_H
#define PAKFOLD_ZIP_ZIPINFO_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "io/BufferBase.h"
#include "io/InputStream.h"

namespace ZOV_SPACE {

// An entry of the central directory. Its extra field and comment are passed over.
class ZipCentralDir {
public:
    // False, with the stream moved by what was read, when no whole entry follows. Throws ArchivingException "empty file
    // name in central directory".
    bool read(InputStream& in);

    // The next entry, or null when none follows or `left`, how many are still expected, is 0; -1 stands for any number.
    static std::unique_ptr<ZipCentralDir> getNextDir(InputStream& in, int left);

    std::string name;  // Cut to MAXNAMELENGTH bytes.
    unsigned int checkSum = 0;
    unsigned int compressedSize = 0;
    unsigned int uncompressedSize = 0;
    unsigned int headerOffset = 0;  // Of the local header, from the archive's start.
    unsigned short flags = 0;
    unsigned short method = 0;
};

// The end record.
class ZipEndCentralDir {
public:
    // Where the last end record begins, searched for in the last 64 KiB; 0 when there is none.
    static long findPos(BufferBase& buffer);

    // False when no whole end record follows.
    bool read(InputStream& in);

    unsigned short entryCount = 0;
    unsigned int directorySize = 0;    // Bytes.
    unsigned int directoryOffset = 0;  // From the archive's start.
    unsigned short commentLength = 0;
};

// The local header of the current entry, and what follows the last entry.
class ZipInfo {
public:
    static constexpr std::size_t kMostCentralDirs = 65535;

    // Reads a local header, with the name and the extra field unless `headerOnly`. The caller has marked the stream
    // there. False when none follows. When the sizes follow the data, checksum and sizes stay as they were.
    //   Throws:  ArchivingException "encrypted ZIP entry", "bad entry name"; IOException "unexpected EOF" inside a
    //   name;
    //            OutOfMemoryException "Out of memory".
    bool read(InputStream& in, bool headerOnly);

    // Whether checksum and sizes follow the data, in a data descriptor.
    bool hasDataDescriptor() const { return (flags & 0x0008) != 0; }

    // Reads the data descriptor, with or without signature, if one follows; otherwise nothing is consumed and the
    // values stay. The stream must support marks. Never fails for lack of bytes.
    void readDataDescriptor(InputStream& in);

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
    void readVariablePart(InputStream& in, int nameLength, int extraLength);
    void takeLargeSizes();

    bool _largeDescriptor = false;  // Sizes of 8 bytes in the data descriptor are announced.
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_ZIPINFO_H
