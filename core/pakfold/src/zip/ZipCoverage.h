// ZipCoverage: whether a walk by the local headers met all that an archive's directory tells of, as the directory tells
// it. A source may hold several archives, one behind the other or one within a damaged entry of the other, each with a
// directory of its own. Used by one thread at a time.
#ifndef PAKFOLD_ZIP_ZIPCOVERAGE_H
#define PAKFOLD_ZIP_ZIPCOVERAGE_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "zip/ZipCentralDir.h"
#include "zip/ZipEndCentralDir.h"

namespace ZOV_SPACE {

class ZipCoverage {
public:
    // Of those met, and of those in one directory, that can be remembered. What comes later is not compared.
    static constexpr std::size_t kMostEntries = std::size_t{1} << 20;

    // How an entry's data was read.
    struct Reading {
        std::uint32_t packedSize;  // Bytes.
        std::uint32_t unpackedSize;
        unsigned method;
    };

    // An entry, by the position of its local header. REQUIRES: positions ascend.
    void meet(std::int64_t headerStart);
    void takeBack();  // The last one was none.
    // The last one was seen as far as this goes. Without it an entry is not compared with what a directory says.
    void describe(const Reading& reading);

    void meetEnd(const ZipEndCentralDir& end);  // An end record.
    void beginDirectory() { _listed.clear(); }
    void list(const ZipCentralDir& entry);
    // All that could be read of the directory is listed. `shift` is how far behind the positions that it gives the
    // entries should be, `end` is null when there is no end record, `source` when the archive is read as a stream.
    // Entries that were met before an earlier directory do not count any more where only numbers can be compared.
    // Throws what the source throws.
    void compare(std::int64_t shift, const ZipEndCentralDir* end, BufferBase* source);

    bool hasEnd() const { return _hasEnd; }          // An end record was among them.
    bool isComplete() const { return _isComplete; }  // The latest directory tells of nothing that was not met.
    std::int64_t missed() const { return _missed; }  // Entries of one directory, at most.
    std::int64_t contradicted() const { return _contradicted; }  // Likewise, that were met as something else.
    bool spansVolumes() const { return _spansVolumes; }
    bool isTooLong() const { return _isTooLong; }  // There are entries that were not compared.

private:
    struct Met {
        std::int64_t headerStart;
        Reading reading;
        bool isDescribed;
    };
    struct Listed {
        std::int64_t headerOffset;
        std::uint64_t packedSize;
        std::uint64_t unpackedSize;
        unsigned short method;
        bool isEncrypted;
        bool isElsewhere;  // In another volume.
    };

    const Met* metAt(std::int64_t headerStart) const;
    static bool agree(const Met& met, const Listed& listed);

    std::vector<Met> _met;
    std::vector<Listed> _listed;
    std::size_t _metBeyond = 0;  // Entries met that are not remembered.
    std::size_t _metBefore = 0;  // The latest directory.
    bool _hasEnd = false;
    bool _isComplete = false;
    bool _spansVolumes = false;
    bool _isTooLong = false;
    std::int64_t _missed = 0;
    std::int64_t _contradicted = 0;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_ZIPCOVERAGE_H
