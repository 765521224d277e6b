// RarDeepUnarchiver: RAR archives wherever they are in a content, read past what is damaged in them.
#ifndef PAKFOLD_RAR_DEEP_RARDEEPUNARCHIVER_H
#define PAKFOLD_RAR_DEEP_RARDEEPUNARCHIVER_H

#include <cstdint>
#include <memory>
#include <optional>

#include "ContentBytes.h"
#include "CoveredRanges.h"
#include "rar/RarEntryReader.h"
#include "rar/deep/RarHeaders.h"
#include "rar/deep/RarVolumes.h"
#include "unarchiver/Pakfold.h"

namespace ZOV_SPACE {

// Walks each archive in one buffer from its mark on, block by block. Where no sound block stands where the next one
// should be, a sweep finds the next header of an entry whose check-sum holds, or the next archive.
//
// - Marks that members cover, of this or another archive of the content, are those members' business.
// - Data that could not be decoded is swept, too, unless a sound block follows where it ends.
// - The processor is told of all that an archive has and that is not read; of RAR 5, that it is there.
// - Every byte is swept once, but for such data, which is charged to the scan's budget, as is all that is decoded.
//   Throws:  as RarUnarchiver, but nothing for damage: the walk goes on behind it.
class RarDeepUnarchiver : public Unarchiver {
public:
    // All that is given is borrowed. What members cover is added.
    RarDeepUnarchiver(BufferBase* buffer, ArchiveEntryProcessor& entries, CoveredRanges& covered);
    RarDeepUnarchiver(RarVolumes& volumes, ArchiveEntryProcessor& entries, CoveredRanges& covered);
    ~RarDeepUnarchiver() override;

    void start() override;

private:
    void walk();
    std::optional<ArchiveMark> nextMark(std::int64_t position);
    std::int64_t meet(const ArchiveMark& mark);
    std::unique_ptr<RarVolumes> join(const ArchiveMark& mark);
    std::int64_t walkVolumes(RarVolumes& volumes, const ArchiveMark& mark);
    void tellOfRar5(const ArchiveMark& mark);
    std::int64_t walkBlocks(RarEntryReader& entries, std::int64_t position);
    bool follows(const RarHeader& header) const;
    std::int64_t takeEntry(RarEntryReader& entries, RarHeader& header);
    std::int64_t takeOther(RarEntryReader& entries, const RarHeader& header);
    void tellOfGap(const RarHeader& header) const;
    bool sweep(std::int64_t& position);
    void tell(ArchiveTrouble what, const char* text) const { _entries.trouble(what, nullptr, text); }

    ArchiveEntryProcessor& _entries;
    CoveredRanges& _covered;
    ContentBytes _bytes;
    RarHeaders _headers;
    // From where on nothing is known, if no sound block follows where the one before ends: behind that, or where its
    // data begins.
    std::int64_t _doubtful = 0;
    bool _isRar5Told = false;
    bool _joins = true;  // May still look for other volumes.
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_DEEP_RARDEEPUNARCHIVER_H
