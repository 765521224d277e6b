// RarVolumes: the volumes of a RAR archive, read as one archive that has none.
#ifndef PAKFOLD_RAR_DEEP_RARVOLUMES_H
#define PAKFOLD_RAR_DEEP_RARVOLUMES_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "io/ReadOnlyBufferBase.h"
#include "rar/deep/RarHeaders.h"
#include "unarchiver/Pakfold.h"

namespace ZOV_SPACE {

// A mark, the first volume's header, and all entries, each with its header and its data in one piece: of what is
// continued the headers are put together. Service blocks are left out. The data stays in the volumes, of which the
// first one, like the processor, is borrowed; of the others, which the processor opens, one is open at a time.
//   Throws:  what the volumes throw; IOException when one has changed.
class RarVolumes : public ReadOnlyBufferBase {
public:
    static constexpr int kMost = 1000;
    static constexpr std::size_t kMostPieces = std::size_t{1} << 16;

    // Null unless the archive that begins with the mark is the first of several volumes, all are there, and all headers
    // in them are sound.
    static std::unique_ptr<RarVolumes> join(BufferBase& first, const ArchiveMark& mark, ArchiveEntryProcessor& entries);
    ~RarVolumes() override;

    // Behind the last block of the first volume that was taken, but for an end block.
    std::int64_t endInFirst() const { return _endInFirst; }
    int read(long pos) override;
    int read(long pos, char* buf, int n) override;

private:
    // What comes of one volume: it is the last one, another one follows, or they do not belong together.
    enum class Added { last, more, nothing };
    struct Piece {
        std::int64_t start;  // In the whole.
        int volume;          // From 1 on; 0: bytes of our own.
        std::int64_t position;
        std::int64_t size;
    };
    struct Own {  // Of the bytes of our own, some.
        std::size_t place;
        std::size_t size;
    };
    struct Unfinished {
        Own header;
        std::string name;
        std::int64_t packedSize;
    };

    RarVolumes(BufferBase& first, ArchiveEntryProcessor& entries) : _first(first), _entries(entries) {}

    BufferBase* volume(int number);
    Added addVolume(int number, const ArchiveMark& mark);
    Added addBlocks(int number, ContentBytes& bytes, std::int64_t position);
    Added endedBy(const RarHeader& end) const;
    bool addEntry(int number, ContentBytes& bytes, const RarHeader& header);
    void finishEntry(const RarFileBlock& last);
    Own addOwn(ContentBytes& bytes, std::int64_t start, std::int64_t end);
    void addPiece(int volume, std::int64_t position, std::int64_t size);
    void changeHeader(const Own& own, unsigned flagsToClear);
    void readPiece(const Piece& from, std::int64_t skipped, char* buf, int count);

    BufferBase& _first;
    ArchiveEntryProcessor& _entries;
    std::unique_ptr<BufferBase> _open;
    int _openNumber = 0;
    std::string _own;
    std::vector<Piece> _pieces;
    std::int64_t _total = 0;
    std::int64_t _endInFirst = 0;
    std::optional<Unfinished> _unfinished;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_DEEP_RARVOLUMES_H
