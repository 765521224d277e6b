// ZipUnarchiver.h: ZIP archives (APPNOTE.TXT, PKWARE), read front to back by their local headers. Stored and deflated
// entries can be unpacked.
#ifndef PAKFOLD_ZIP_ZIPUNARCHIVER_H
#define PAKFOLD_ZIP_ZIPUNARCHIVER_H

#include <cstdint>
#include <memory>
#include <string>

#include "PositionInputStream.h"
#include "unarchiver/Pakfold.h"
#include "zip/ZipCoverage.h"
#include "zip/ZipInfo.h"

namespace ZOV_SPACE {

class DescriptorFinder;
struct ZipDataExtent;

class ZipEntryInfo : public ArchiveEntryInfo {
public:
    ~ZipEntryInfo() override;
};

class ZipArchiveProcessor : public ArchiveProcessor {
public:
    ~ZipArchiveProcessor() override;
    bool process(const ArchiveEntryInfo* entry) override;  // true
};

// Walks one archive, in the order of the local headers; the central directory only serves to tell whether entries were
// missed.
//
// - The source is borrowed and must support marks. Over a buffer the size of an entry whose sizes follow its data is
//   found by looking ahead, before the entry is offered. If the data is damaged, the entry is offered with the sizes up
//   to there.
// - What the processor's streams take counts against the scan's budget, and so does what was looked at ahead and comes
//   to nothing. OutOfBudgetException ends the walk.
// - A line tells the host of an entry that failed the walk, of a walk that ends in front of anything but the directory,
//   and of entries that the directory counts and the walk did not meet. The processor is told of these and of all else
//   that is not seen.
// - Behind the last entry an empty record is offered: no name, all numbers 0.
// - When an entry fails the walk, it resumes once, with the next local header that can be found behind the entry's.
//   What fails after that ends it with "failed to restart zip unarchiving". For a processor that persists it resumes
//   whenever something else than a local header follows, as long as one can be found further on, and ends well; names
//   of any length will do, and encrypted entries are passed over. Throws:  ArchivingException "encrypted ZIP entry",
//   "bad entry name", "Unknown algorithm: <method> in zip",
//            "Archiving aborted", "missing data descriptor", "empty file name in central directory", or with the text
//            of what failed while data was moved; IOException "unexpected EOF"; OutOfMemoryException; what the
//            processor throws.
class ZipUnarchiver : public Unarchiver {
public:
    // `flags`, minus one, is how many central directory entries are read; 0 stands for all.
    ZipUnarchiver(InputStream* in, ArchiveEntryProcessor& entries, DecompressProcessor* decompression, unsigned flags);
    ZipUnarchiver(BufferBase* buffer, ArchiveEntryProcessor& entries, DecompressProcessor* decompression,
                  unsigned flags);
    ~ZipUnarchiver() override;

    void start() override;
    // Goes on behind the entry that failed.
    void restart();

    // Whether the stream begins with a local header, or with a split archive's marker and one. The stream stays where
    // it is.
    static bool checkFormat(InputStream& in);

private:
    void walk();
    void walkOn();
    bool succeeds(void (ZipUnarchiver::*part)());  // False after an entry's failure, which was told.
    bool moveToHeader(std::int64_t start);
    void moveTo(long position);
    bool processNext();
    bool readHeader();
    void passOverEncrypted(const ZipDataExtent& extent);
    void takeDescriptor(const ZipDataExtent& extent);
    void skipSplitMarker();
    void findExtent(ZipDataExtent& extent) const;
    void fill(ZipEntryInfo& entry, const ZipDataExtent& extent) const;
    std::int64_t moveData(const ZipEntryInfo& entry, const ZipDataExtent& extent, int action, OutputStream* out);
    void unpack(const ZipEntryInfo& entry, const ZipDataExtent& extent, OutputStream& out);
    void copyStored(const ZipDataExtent& extent, OutputStream& out);
    void unpackDeflated(const ZipDataExtent& extent, OutputStream& out);
    void passOver(const ZipDataExtent& extent);
    void finish();
    void endWalk();
    void readDirectory();
    void readDirectoriesFromEnd();
    void readRecords(std::int64_t start);
    void readDirectoryEntries();
    void compare(std::int64_t start, std::int64_t shift, const ZipEndCentralDir* end);
    bool readEndFromBuffer();
    void tellOfMissedMembers() const;
    void tellOfCoverage() const;
    void tellOfSize(const ZipDataExtent& extent, std::int64_t unpackedBytes) const;
    ZipCoverage::Reading readingOf(const ZipDataExtent& extent) const;
    bool isCut(const ZipDataExtent& extent) const;
    void tell(ArchiveTrouble what, const std::string& text) const;  // Of the current entry, or else the archive.

    BufferBase* _buffer = nullptr;  // Null: the source is a stream.
    std::unique_ptr<InputStream> _bufferStream;
    std::unique_ptr<PositionInputStream> _in;
    std::unique_ptr<DescriptorFinder> _descriptors;  // Over a buffer.
    ArchiveEntryProcessor& _entries;
    DecompressProcessor* _decompression;
    unsigned _flags;
    bool _persists;
    bool _isSplit = false;          // A split archive's marker comes first.
    std::int64_t _headerStart = 0;  // Of the current entry.
    bool _inEntry = false;          // Whether there is a current entry.
    std::int64_t _dataStart = 0;    // Of the same.
    std::int64_t _resumeAt = 0;     // Where a walk that persists looks for the next header.
    std::int64_t _membersMet = 0;
    bool _metGap = false;         // Neither an entry nor the directory followed.
    bool _directoryRead = false;  // Since the last entry.
    long _endPosition = -1;       // Of the source's last end record, once it was looked for; 0: there is none.
    // The directory that was compared last.
    std::int64_t _comparedStart = -1;
    std::int64_t _comparedShift = 0;
    ZipCoverage _coverage;
    ZipInfo _info;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ZIP_ZIPUNARCHIVER_H
