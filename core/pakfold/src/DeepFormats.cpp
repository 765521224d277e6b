#include "unarchiver/DeepFormats.h"

#include "io/BufferBaseStreams.h"
#include "unarchiver/ForeignFormat.h"
#include "zip/ZipUnarchiver.h"
#include "zip/deep/ZipDeepUnarchiver.h"

namespace ZOV_SPACE {
namespace {

template <class T>
class DeepArchiveId : public EmptyArchiveId {
public:
    std::unique_ptr<Unarchiver> unarchiver(InputStream*, ArchiveEntryProcessor&, DecompressProcessor*) const override {
        return nullptr;
    }
    std::unique_ptr<Unarchiver> unarchiver(BufferBase* buffer, ArchiveEntryProcessor& entries,
                                           DecompressProcessor*) const override {
        return std::make_unique<T>(buffer, entries);
    }
};

const DeepArchiveId<ZipDeepUnarchiver> kZip;

bool beginsAsZip(BufferBase& content) {
    BufferBaseInputStream in(&content);
    return ZipUnarchiver::checkFormat(in);
}

}  // namespace

const ArchiveId& deepFormat(BufferBase& content, const ArchiveId& plain) {
    if (&plain != &ARCHIVEID_NONE) return beginsAsZip(content) ? kZip : plain;
    const bool isForeign = foreignFormat(content, ForeignZip::no) != nullptr;
    return !isForeign && ZipDeepUnarchiver::isWithin(content) ? static_cast<const ArchiveId&>(kZip) : plain;
}

}  // namespace ZOV_SPACE
