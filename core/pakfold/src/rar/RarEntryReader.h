// RarEntryReader: offers the entries of one RAR archive to a processor, and decodes what it takes.
//
// A solid entry goes on where the one before it stopped, with its window, tables and models. So every compressed entry
// of a solid archive is decoded, wanted or not, into nothing if need be; one whose header is broken, too.
#ifndef PAKFOLD_RAR_RARENTRYREADER_H
#define PAKFOLD_RAR_RARENTRYREADER_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "EntryStreams.h"
#include "PositionInputStream.h"
#include "io/BufferBase.h"
#include "rar/RarBlock.h"
#include "rar/RarDecompressor.h"
#include "unarchiver/Pakfold.h"

namespace ZOV_SPACE {

namespace rarTexts {

constexpr const char* kEncrypted = "the entry is encrypted";
constexpr const char* kEncryptedHeaders = "all headers are encrypted";
constexpr const char* kContinued = "the entry is continued from the previous volume";
constexpr const char* kCut = "the archive ends inside the data";
constexpr const char* kCutHeader = "the archive ends inside a header";
constexpr const char* kNoBlock = "what follows is no block";
constexpr const char* kBroken = "the check-sum of the header is wrong";
constexpr const char* kNextVolume = "another volume follows";

}  // namespace rarTexts

// All that is given is borrowed. Used by one thread at a time, for entries in the order of the archive. Throws as
// RarUnarchiver; where `persists`, nothing for entries that cannot be decoded.
class RarEntryReader {
public:
    // `source` is what streams read from, null when that is no buffer.
    RarEntryReader(BufferBase* source, ArchiveEntryProcessor& entries, DecompressProcessor* decompression,
                   bool solidArchive, bool persists);

    // Offers an entry whose data begins at the stream's position, and moves behind the data. False when not all of the
    // entry could be had from data that is there.
    bool take(std::unique_ptr<RarFileBlock> file, PositionInputStream& in);
    // What there is to tell of any block's header, besides those of entries.
    void tellOfHeader(const RarBlock& block) const;
    // Entries between the last one and the next may have been missed.
    void breakChain();

    bool persists() const { return _persists; }
    // Whether the source ends before that many bytes from `start` on do.
    bool isCut(std::int64_t start, std::int64_t bytes) const;
    // `file` is null for the archive.
    void tell(ArchiveTrouble what, const RarFileBlock* file, const std::string& text) const;

private:
    // An entry that was not decoded to its end, and where its data is.
    struct PassedOver {
        std::unique_ptr<RarFileBlock> file;
        long position;
    };

    bool refuses(const RarFileBlock& file) const;
    void takeData(RarFileBlock& file, BoundedInputStream& data);
    void offer(const RarFileBlock& file, BoundedInputStream& data);
    void transfer(const RarFileBlock& file, BoundedInputStream& data, int action, OutputStream* out);
    void transferSolid(const RarFileBlock& file, BoundedInputStream& data, int action, OutputStream* out);
    void copyStored(const RarFileBlock& file, BoundedInputStream& data, OutputStream& out);
    void decode(const RarFileBlock& file, InputStream& data, OutputStream& out);
    void decodePassedOver();
    template <class Call>
    void attempt(const RarFileBlock& file, Call call);
    void report(const RarFileBlock& file);
    void tellMissing(const RarFileBlock& file, std::int64_t missingBytes);

    // Whether later entries may build on what this one unpacks to. The first entry of a solid archive has no flag of
    // its own.
    bool othersBuildOn(const RarFileBlock& file) const { return !file.isStored() && (file.isSolid() || _solidArchive); }

    BufferBase* _source;
    ArchiveEntryProcessor& _entries;
    DecompressProcessor* _decompression;
    std::optional<RarDecompressor> _decompressor;  // Once one is needed.
    bool _solidArchive;
    bool _persists;
    bool _decoded = false;                  // The entry at hand, to its end.
    bool _failed = false;                   // The same, as far as its data is there.
    bool _isCut = false;                    // The source ends inside its data.
    bool _chainBroken = false;              // What a solid entry that follows builds on cannot be had.
    std::optional<PassedOver> _passedOver;  // What it builds on.
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_RARENTRYREADER_H
