// The formats whose archives are found and walked as any unpacker may do it, instead of by their rules alone.
#ifndef PAKFOLD_UNARCHIVER_DEEPFORMATS_H
#define PAKFOLD_UNARCHIVER_DEEPFORMATS_H

#include <cstdint>
#include <memory>
#include <string_view>

#include "io/BufferBase.h"
#include "unarchiver/Pakfold.h"
#include "unarchiver/ProbedContent.h"

namespace ZOV_SPACE {

class CoveredRanges;

struct DeepFormat {
    std::string_view foreignName;  // As foreignFormat() calls the contents that this reader makes needless to tell of.
    // Whether members can be expected in the content. `isHeld`: it is an archive of another format, too, so that what
    // merely stands somewhere in it may be that one's member. Throws what the buffer throws.
    bool (*isIn)(ProbedContent& content, bool isHeld);
    // The walk passes over what `covered` has, and adds the bytes of the members that it can decode: archives in those
    // are met when the members are scanned, and are none of the content's own.
    std::unique_ptr<Unarchiver> (*unarchiver)(BufferBase* content, ArchiveEntryProcessor& entries,
                                              CoveredRanges& covered);
    // Where the first archive begins in a content that isIn() is true of; null: always with the content. The format
    // that begins first is walked first.
    std::int64_t (*begin)(BufferBase& content) = nullptr;
};

// Makes a format known, while the library is loaded; at most 10 in all. True.
bool registerDeepFormat(const DeepFormat& format);

// What a content is to be walked as: `plain`, what VoleEngineFactory makes of its beginning, or an id that walks it in
// each of the formats above whose members are in it, one after the other. Such ids open buffers only. Throws what the
// buffer throws.
const ArchiveId& deepFormat(ProbedContent& content, const ArchiveId& plain);
const ArchiveId& deepFormat(BufferBase& content, const ArchiveId& plain);

// Whether an id of deepFormat() walks what foreignFormat() calls by this name.
bool isWalked(const ArchiveId& format, std::string_view foreignName);

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_UNARCHIVER_DEEPFORMATS_H
