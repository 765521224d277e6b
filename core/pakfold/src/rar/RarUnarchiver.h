// RarUnarchiver.h: RAR archives of the formats 1.5 to 2.9, read front to back.
#ifndef PAKFOLD_RAR_RARUNARCHIVER_H
#define PAKFOLD_RAR_RARUNARCHIVER_H

#include <memory>

#include "unarchiver/Pakfold.h"

namespace ZOV_SPACE {

// Sizes that need more than 32 bits are given as the largest number that does not. The name ends before its first zero
// byte. The algorithm is kAlgorithmRar.
class RarEntryInfo : public ArchiveEntryInfo {
public:
    ~RarEntryInfo() override;
};

// Entries continued from a previous volume are passed over without being offered. One encrypted entry ends the walk.
//
// Compressed entries of a solid archive are decoded even when the processor skips them, because later ones build on
// them. In an archive that does not say that it is solid, a first entry that was skipped is decoded once a solid one
// follows; that takes a buffer as the source. Either, and what follows when a sink is full, is charged to the scan's
// budget, and so is what processors take.
//
// Whatever is given up while the walk goes on gets an error line with the entry's name: bytes that are missing, filters
// that were not run, budgets that ran out.
//
// For a processor that persists the walk goes on behind entries that are encrypted, belong to several volumes or cannot
// be decoded, and behind those that build on them; the processor is told of each. That an entry is continued in the
// next volume is not taken for a nested block then.
//
// Kept as is: beginUnarchiving() is called before every entry; no operation of the processor is called at the end.
//   Throws: ArchivingException "Not a rar package", "Rar archive info error", "Rar head error", "Archiving aborted",
//           or with the text of the CompressionException that ended the decoding of an entry; IOException from the
//           data of an entry; OutOfMemoryException "Out of memory"; what the processor and its streams throw.
class RarUnarchiver : public Unarchiver {
public:
    // Whether a marker stands at the stream's position, where the stream, which must support marks, stays.
    static bool checkFormat(InputStream& in);

    // `offset` is where the byte behind the marker stands in the source, or 0 when the marker comes first.
    RarUnarchiver(InputStream* in, ArchiveEntryProcessor& entries, DecompressProcessor* decompression,
                  unsigned int offset);
    RarUnarchiver(BufferBase* buffer, ArchiveEntryProcessor& entries, DecompressProcessor* decompression,
                  unsigned int offset);
    ~RarUnarchiver() override;

    void start() override;

private:
    void walk();

    std::unique_ptr<InputStream> _ownStream;
    InputStream* _in;
    BufferBase* _source = nullptr;  // What the stream reads from, if that is known.
    ArchiveEntryProcessor& _entries;
    DecompressProcessor* _decompression;
    unsigned int _offset;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_RARUNARCHIVER_H
