#include "unarchiver/DeepFormats.h"

#include <exception>
#include <memory>
#include <utility>

#include "io/BufferBaseStreams.h"
#include "unarchiver/ForeignFormat.h"
#include "unarchiver/ScanBudget.h"
#include "zip/ZipUnarchiver.h"
#include "zip/deep/ZipDeepUnarchiver.h"
#include "zip/deep/ZipWithin.h"

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

// A content that begins in one format and ends with a ZIP archive: unpackers go by the one or by the other.
class BothUnarchiver : public Unarchiver {
public:
    BothUnarchiver(std::unique_ptr<Unarchiver> first, BufferBase* buffer, ArchiveEntryProcessor& entries)
        : _first(std::move(first)), _second(buffer, entries) {}

    void start() override {
        std::exception_ptr failure;
        try {
            _first->start();
        } catch (const OutOfBudgetException&) {
            throw;
        } catch (const ArchivingException&) {
            failure = std::current_exception();
        }
        _second.start();
        if (failure) std::rethrow_exception(failure);
    }

private:
    std::unique_ptr<Unarchiver> _first;
    ZipDeepUnarchiver _second;
};

class BothArchiveId : public DeepArchiveId<ZipDeepUnarchiver> {
public:
    explicit BothArchiveId(const ArchiveId& first) : _first(first) {}

    std::unique_ptr<Unarchiver> unarchiver(BufferBase* buffer, ArchiveEntryProcessor& entries,
                                           DecompressProcessor* decompression) const override {
        return std::make_unique<BothUnarchiver>(_first.unarchiver(buffer, entries, decompression), buffer, entries);
    }

private:
    const ArchiveId& _first;
};

bool beginsAsZip(BufferBase& content) {
    BufferBaseInputStream in(&content);
    return ZipUnarchiver::checkFormat(in);
}

}  // namespace

const ArchiveId& deepFormat(BufferBase& content, const ArchiveId& plain) {
    if (beginsAsZip(content)) return kZip;
    const ZipWithin within = findZipWithin(content);
    if (&plain == &ARCHIVEID_NONE) {
        // What another format has in it is that format's business, unless unpackers see an archive behind it.
        const bool isHeld = within == ZipWithin::header && foreignFormat(content, ForeignZip::no);
        return within == ZipWithin::nothing || isHeld ? plain : kZip;
    }
    static const BothArchiveId both(plain);  // Of the two formats that are known there is only one left.
    return within == ZipWithin::archive ? both : plain;
}

}  // namespace ZOV_SPACE
