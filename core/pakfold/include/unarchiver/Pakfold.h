// Pakfold.h: the contracts between those who recognise and open archives (ArchiveId, Unarchiver) and those who take
// what is in them (ArchiveEntryProcessor).
//
// An archive id recognises one format on a stream and makes unarchivers for it. An unarchiver walks an archive front to
// back and offers each entry to the processor, which decides whether the entry is skipped, copied as it is stored, or
// decompressed, and where the bytes go.
//
// The order of virtual operations (destructor first, then as declared) and of fields is part of the framework's
// contract: add new ones at the end only. Unless said otherwise, objects are used by one thread at a time.
#ifndef PAKFOLD_UNARCHIVER_PAKFOLD_H
#define PAKFOLD_UNARCHIVER_PAKFOLD_H

#include <cstdint>
#include <memory>
#include <string>

#include "Exception.h"
#include "io/BufferBase.h"
#include "io/InputStream.h"
#include "io/OutputStream.h"
#include "utils/Crc.h"

namespace ZOV_SPACE {

// How an entry is stored, as ArchiveEntryInfo::algorithm says it.
constexpr int kAlgorithmStored = 0;
constexpr int kAlgorithmDeflate = 1;
constexpr int kAlgorithmShrink = 2;
constexpr int kAlgorithmImplode = 3;
constexpr int kAlgorithmRar = 4;    // Any method of the RAR format.
constexpr int kAlgorithmOther = 5;  // One that the walk itself decodes.
constexpr int kAlgorithmUnknown = -1;

// One entry as its archive describes it. Nothing in here has been checked against the entry's data.
class ArchiveEntryInfo {
public:
    ArchiveEntryInfo() = default;
    ArchiveEntryInfo(const ArchiveEntryInfo&) = delete;
    ArchiveEntryInfo& operator=(const ArchiveEntryInfo&) = delete;
    virtual ~ArchiveEntryInfo();

    // By the processor word.
    virtual bool operator<(const ArchiveEntryInfo& other) const;

    std::unique_ptr<unsigned char[]> extraData;
    int algorithm = kAlgorithmStored;
    std::intptr_t processorWord = 0;  // For the entry processor, which may set it.
    std::string name;                 // Path inside the archive; empty when the entry has none.
    int flags = 0;                    // By format; 0 for ZIP, the file attributes for RAR.
    unsigned int time = 0;            // MS-DOS time in the low, date in the high 16 bits.
    int compressedSize = 0;           // Bytes in the archive, in 32 bits.
    int uncompressedSize = 0;         // Bytes once unpacked, in 32 bits.
    unsigned int checkSum = 0;        // CRC-32 of the unpacked bytes.
    bool hasCheckSum = true;          // Otherwise the archive gives none.
    const char* method = "";          // What packs it, a static word such as "deflate"; empty when it has no name.
    bool isFolder = false;            // A folder, by more than a slash at the end of its name.
};

// What an entry processor tells the unarchiver to do with an entry. Any other value counts as kActionSkip.
constexpr int kActionAbort = -1;      // End the walk with ArchivingException "Archiving aborted".
constexpr int kActionSkip = 0;        // Pass over the entry's data.
constexpr int kActionCopy = 1;        // Copy the stored bytes to the stream.
constexpr int kActionDecompress = 2;  // Decompress the entry into the stream.

// Why something in an archive is not seen, or not as the archive has it.
enum class ArchiveTrouble {
    encrypted,
    unknownMethod,
    otherVolume,  // Continued from, or in, another volume.
    damaged,      // Structure that makes no sense, entries that are missing, data that cannot be decoded.
    truncated,    // The data ends early.
    spent,        // Work for which the scan's budget, or a bound of the format's own, has nothing left.
    otherFormat,  // Members that are there, too, in a format that this walk is not for.
    checkSum,     // Data does not have a check-sum that is not ArchiveEntryInfo::checkSum.
};

// Takes the entries of one archive, in this order: beginUnarchiving(), processEntry() for each entry,
// endUnarchiving() and releaseSession(). A walk that fails ends without the last two. (RAR: see RarUnarchiver.)
class ArchiveEntryProcessor {
public:
    ArchiveEntryProcessor() = default;
    ArchiveEntryProcessor(const ArchiveEntryProcessor&) = delete;
    ArchiveEntryProcessor& operator=(const ArchiveEntryProcessor&) = delete;
    virtual ~ArchiveEntryProcessor();

    virtual void beginUnarchiving();  // Default: nothing.
    // Sets the action and returns where the entry's bytes go; without a stream they are passed over. The unarchiver
    // flushes and closes the stream when the entry is done. A UnarchiveRatioExceed from the stream ends the entry, not
    // the walk. Default: skips every entry.
    virtual std::unique_ptr<OutputStream> processEntry(ArchiveEntryInfo* entry, int& action);
    virtual void endUnarchiving();  // Default: nothing.
    virtual void releaseSession();  // Default: nothing.

    // The entry whose stream this is came to its end: all that is to be had of it was written, and the stream is
    // closed. Not called for an entry that fails the walk. Default: nothing.
    virtual void endEntry(const ArchiveEntryInfo& entry, OutputStream& out);
    // Tells what is not seen. `member` is the entry's name as it stands in the archive, null for the archive itself;
    // `text` says in English what happened. A failure that ends the walk is thrown instead. Default: nothing.
    virtual void trouble(ArchiveTrouble what, const std::string* member, const std::string& text);
    // Whether the walk goes on as long as it can tell where another entry begins, instead of ending where its format's
    // rules say: behind encrypted and damaged entries, and any number of times. Default: false.
    virtual bool persists() const;
    // The bytes of another volume of the archive that is walked, by its number, which is above 1; null when they are
    // not to be had. Default: null.
    virtual std::unique_ptr<BufferBase> volume(int number);
    // What the archive itself is called, as it stands in the one around it; empty where nobody knows. Default: empty.
    virtual std::string archiveName() const;
};

class ArchiveProcessor {
public:
    ArchiveProcessor() = default;
    ArchiveProcessor(const ArchiveProcessor&) = delete;
    ArchiveProcessor& operator=(const ArchiveProcessor&) = delete;
    virtual ~ArchiveProcessor();

    virtual bool process(const ArchiveEntryInfo* entry);  // Default: true.
};

// Looks at what is being decompressed and may end it: getAction() is asked while data flows, and kStop ends the entry
// quietly.
class DecompressProcessor {
public:
    static constexpr int kStop = 2;

    DecompressProcessor() = default;
    DecompressProcessor(const DecompressProcessor&) = delete;
    DecompressProcessor& operator=(const DecompressProcessor&) = delete;
    // Pure operations come first in the table; the destructor is the last, kept as is.
    virtual int init() = 0;
    virtual int setFileName(std::string& name) = 0;
    virtual int setContentType(std::string& type) = 0;
    virtual int check(InputStream* in) = 0;
    virtual int check(BufferBase* buffer) = 0;
    virtual int requiredLength() = 0;  // Bytes that check() looks at.
    virtual int getAction() = 0;
    virtual ~DecompressProcessor();
};

class Decompressor {
public:
    Decompressor() = default;
    Decompressor(const Decompressor&) = delete;
    Decompressor& operator=(const Decompressor&) = delete;
    virtual ~Decompressor();

    virtual void decompress(InputStream& in, OutputStream& out);  // Throws ArchivingException "Unimplemented".
    virtual int getAlgorithm() const;                             // 0
    virtual std::string getAlgorithmName() const;                 // "none"
};

class Encoder {
public:
    Encoder() = default;
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;
    virtual ~Encoder();

    virtual void encode(InputStream& in, OutputStream& out);  // Throws ArchivingException "Unimplemented".
    virtual int getAlgorithm() const;                         // 0
    virtual std::string getAlgorithmName() const;             // "none"
};

class Decoder {
public:
    Decoder() = default;
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;
    virtual ~Decoder();

    virtual void decode(InputStream& in, OutputStream& out);  // Throws ArchivingException "Unimplemented".
    virtual int getAlgorithm() const;                         // 0
    virtual std::string getAlgorithmName() const;             // "none"
};

class ArchiveEntry {
public:
    ArchiveEntry() = default;
    ArchiveEntry(const ArchiveEntry&) = delete;
    ArchiveEntry& operator=(const ArchiveEntry&) = delete;
    virtual ~ArchiveEntry();
};

// Writing archives. No format has it, and every operation throws ArchivingException "Unimplemented".
class Archiver {
public:
    Archiver() = default;
    Archiver(const Archiver&) = delete;
    Archiver& operator=(const Archiver&) = delete;
    virtual ~Archiver();

    virtual void addEntry(ArchiveEntryInfo* entry, InputStream& in);
    virtual void addRawEntry(ArchiveEntryInfo* entry, InputStream& in);
    virtual void addRawEntry(ArchiveEntry* entry);
    virtual void finish();
};

// Made for one archive, started once. Concrete classes are constructed from a source (stream or buffer), the entry
// processor, a decompress processor or null, and flags that are 0 where an archive id makes them; all are borrowed.
class Unarchiver {
public:
    Unarchiver() = default;
    Unarchiver(const Unarchiver&) = delete;
    Unarchiver& operator=(const Unarchiver&) = delete;
    virtual ~Unarchiver();

    // Walks the whole archive. Throws ArchivingException, IOException or OutOfMemoryException when the walk fails, and
    // what the processor throws. The base throws ArchivingException "Unimplemented".
    virtual void start();
};

// One archive format. Immutable; any number of threads may use one.
class ArchiveId {
public:
    ArchiveId() = default;
    ArchiveId(const ArchiveId&) = delete;
    ArchiveId& operator=(const ArchiveId&) = delete;
    virtual ~ArchiveId();

    // Whether the stream holds this format. The stream, which must support marks, stays where it is.
    virtual bool accept(InputStream& in) const = 0;
    // Null when the format cannot be opened.
    virtual std::unique_ptr<Unarchiver> unarchiver(InputStream* in, ArchiveEntryProcessor& entries,
                                                   DecompressProcessor* decompression) const = 0;
    virtual std::unique_ptr<Unarchiver> unarchiver(BufferBase* buffer, ArchiveEntryProcessor& entries,
                                                   DecompressProcessor* decompression) const = 0;
    virtual std::unique_ptr<Archiver> archiver(OutputStream& out) const = 0;  // Null when it cannot be written.
    virtual bool entryArchivable(const ArchiveEntryInfo* entry) const = 0;
    virtual std::unique_ptr<Crc> crc() const = 0;  // Null when it has none.
    virtual bool archivable() const = 0;
};

// Answers "no" to everything.
class EmptyArchiveId : public ArchiveId {
public:
    ~EmptyArchiveId() override;

    bool accept(InputStream& in) const override;
    std::unique_ptr<Unarchiver> unarchiver(InputStream* in, ArchiveEntryProcessor& entries,
                                           DecompressProcessor* decompression) const override;
    std::unique_ptr<Unarchiver> unarchiver(BufferBase* buffer, ArchiveEntryProcessor& entries,
                                           DecompressProcessor* decompression) const override;
    std::unique_ptr<Archiver> archiver(OutputStream& out) const override;
    bool entryArchivable(const ArchiveEntryInfo* entry) const override;
    std::unique_ptr<Crc> crc() const override;
    bool archivable() const override;
};

extern EmptyArchiveId ARCHIVEID_UNKNOWN;
extern EmptyArchiveId ARCHIVEID_NONE;  // Content that is no archive, or that is not looked at as one.

// The format of the unarchiver class T, which has a static checkFormat(InputStream&).
template <class T>
class SimpleArchiveId : public virtual EmptyArchiveId {
public:
    bool accept(InputStream& in) const override {
        try {
            return T::checkFormat(in);
        } catch (const ArchivingException&) {
            return false;
        } catch (const IOException&) {
            return false;
        }
    }
    std::unique_ptr<Unarchiver> unarchiver(InputStream* in, ArchiveEntryProcessor& entries,
                                           DecompressProcessor* decompression) const override {
        return std::make_unique<T>(in, entries, decompression, 0U);
    }
    std::unique_ptr<Unarchiver> unarchiver(BufferBase* buffer, ArchiveEntryProcessor& entries,
                                           DecompressProcessor* decompression) const override {
        return std::make_unique<T>(buffer, entries, decompression, 0U);
    }
};

// The same for a format whose checksum is C.
template <class T, class C>
class CrcArchiveId : public SimpleArchiveId<T> {
public:
    std::unique_ptr<Crc> crc() const override { return std::make_unique<C>(); }
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_UNARCHIVER_PAKFOLD_H
