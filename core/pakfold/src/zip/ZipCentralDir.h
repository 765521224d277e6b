// ZipCentralDir: one entry of the central directory, which repeats what the local headers say.
#ifndef PAKFOLD_ZIP_ZIPCENTRALDIR_H
#define PAKFOLD_ZIP_ZIPCENTRALDIR_H

#include <cstdint>
#include <memory>
#include <string>

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
    // As ZIP64 has them where the record leaves them to it; 0xFFFFFFFF where that does not have them, either.
    std::uint64_t compressedSize = 0;
    std::uint64_t uncompressedSize = 0;
    std::uint64_t headerOffset = 0;  // Of the local header, from the archive's start.
    unsigned short flags = 0;
    unsigned short method = 0;
    unsigned short disk = 0;  // Of the local header.

private:
    void readExtra(InputStream& in, int length);
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_ZIPCENTRALDIR_H
