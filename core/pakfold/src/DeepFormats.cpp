// A content may be an archive of several formats at once: unpackers go by the one or by the other, so all are walked.
// Each set of formats has
// an id of its own.
#include "unarchiver/DeepFormats.h"

#include <array>
#include <cstddef>
#include <exception>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

#include "io/BufferBaseStreams.h"
#include "rar/RarUnarchiver.h"
#include "unarchiver/ForeignFormat.h"
#include "unarchiver/ScanBudget.h"
#include "zip/ZipUnarchiver.h"
#include "zip/deep/ZipDeepUnarchiver.h"
#include "zip/deep/ZipWithin.h"

namespace ZOV_SPACE {
namespace {

constexpr std::string_view kZipBehindOthers = "ZIP behind other data";

template <class T>
bool beginsAs(BufferBase& content) {
    BufferBaseInputStream in(&content);
    return T::checkFormat(in);
}

bool isRarIn(BufferBase& content, bool) { return beginsAs<RarUnarchiver>(content); }
std::unique_ptr<Unarchiver> rarUnarchiver(BufferBase* content, ArchiveEntryProcessor& entries) {
    return std::make_unique<RarUnarchiver>(content, entries, nullptr, 0U);
}

bool isZipIn(BufferBase& content, bool isHeld) {
    if (beginsAs<ZipUnarchiver>(content)) return true;
    const ZipWithin within = findZipWithin(content);
    if (within != ZipWithin::header) return within == ZipWithin::archive;
    // What another format has in it is that format's business, unless unpackers see an archive behind it.
    const char* const other = isHeld ? "" : foreignFormat(content);
    return !other || other == kZipBehindOthers;
}
std::unique_ptr<Unarchiver> zipUnarchiver(BufferBase* content, ArchiveEntryProcessor& entries) {
    return std::make_unique<ZipDeepUnarchiver>(content, entries);
}

// In the order in which they are looked for, and walked.
constexpr std::size_t kMostFormats = 10;
constinit std::array<DeepFormat, kMostFormats> formats{{
    {"RAR behind a program", isRarIn, rarUnarchiver},
    {kZipBehindOthers, isZipIn, zipUnarchiver},
}};
constinit std::size_t formatCount = 2;

// Walks one archive after the other. What ends one walk does not end the next, unless nothing is left for it.
class EachUnarchiver : public Unarchiver {
public:
    explicit EachUnarchiver(std::vector<std::unique_ptr<Unarchiver>> walks) : _walks(std::move(walks)) {}

    void start() override {
        std::exception_ptr failure;
        for (const auto& walk : _walks) {
            try {
                walk->start();
            } catch (const OutOfBudgetException&) {
                throw;
            } catch (const ArchivingException&) {
                if (!failure) failure = std::current_exception();
            }
        }
        if (failure) std::rethrow_exception(failure);
    }

private:
    std::vector<std::unique_ptr<Unarchiver>> _walks;
};

class DeepArchiveId : public EmptyArchiveId {
public:
    std::unique_ptr<Unarchiver> unarchiver(InputStream*, ArchiveEntryProcessor&, DecompressProcessor*) const override {
        return nullptr;
    }
    std::unique_ptr<Unarchiver> unarchiver(BufferBase* buffer, ArchiveEntryProcessor& entries,
                                           DecompressProcessor*) const override {
        std::vector<std::unique_ptr<Unarchiver>> walks;
        for (std::size_t i = 0; i < formatCount; ++i) {
            if (has(i)) walks.push_back(formats[i].unarchiver(buffer, entries));
        }
        return std::make_unique<EachUnarchiver>(std::move(walks));
    }
    bool has(std::size_t format) const;
};

// The id of each set of formats, which is its place.
const std::array<DeepArchiveId, std::size_t{1} << kMostFormats> ids{};

bool DeepArchiveId::has(std::size_t format) const {
    return static_cast<std::size_t>(std::distance(ids.data(), this)) >> format & 1U;
}

}  // namespace

bool registerDeepFormat(const DeepFormat& format) {
    formats.at(formatCount) = format;
    ++formatCount;
    return true;
}

const ArchiveId& deepFormat(BufferBase& content, const ArchiveId& plain) {
    std::size_t set = 0;
    for (std::size_t i = 0; i < formatCount; ++i) {
        if (formats[i].isIn(content, set != 0)) set |= std::size_t{1} << i;
    }
    if (set == 0) return plain;
    return ids[set];
}

bool isWalked(const ArchiveId& format, std::string_view foreignName) {
    const auto* const deep = dynamic_cast<const DeepArchiveId*>(&format);
    for (std::size_t i = 0; deep && i < formatCount; ++i) {
        if (deep->has(i) && formats[i].foreignName == foreignName) return true;
    }
    return false;
}

}  // namespace ZOV_SPACE
