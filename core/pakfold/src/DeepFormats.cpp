// A content may be an archive of several formats at once: unpackers go by the one or by the other, so all are walked.
// Each set of formats has an id of its own.
#include "unarchiver/DeepFormats.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <iterator>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "ArchiveMarks.h"
#include "CoveredRanges.h"
#include "io/BufferBaseStreams.h"
#include "rar/RarUnarchiver.h"
#include "rar/deep/RarDeepUnarchiver.h"
#include "rar/deep/RarWithin.h"
#include "unarchiver/ForeignFormat.h"
#include "unarchiver/ScanBudget.h"
#include "zip/ZipUnarchiver.h"
#include "zip/deep/ZipDeepUnarchiver.h"
#include "zip/deep/ZipWithin.h"

namespace ZOV_SPACE {
namespace {

constexpr std::string_view kZipBehindOthers = "ZIP behind other data";

constexpr std::int64_t kNowhere = std::numeric_limits<std::int64_t>::max();

bool isForeign(ProbedContent& content);

template <class T>
bool beginsAs(BufferBase& content) {
    BufferBaseInputStream in(&content);
    return T::checkFormat(in);
}

// Asked first.
bool isRarIn(ProbedContent& content, bool) {
    if (beginsAs<RarUnarchiver>(content.bytes())) return true;
    if (beginsAs<ZipUnarchiver>(content.bytes())) return true;  // Of which all is looked through that no member covers.
    if ((content.marks() & kRarMarks) == 0) return false;
    return findRarWithin(content.bytes()) && !isForeign(content);
}
std::int64_t rarBegin(BufferBase& content) {
    if (beginsAs<RarUnarchiver>(content)) return 0;
    return beginsAs<ZipUnarchiver>(content) ? kNowhere : findRarWithin(content).value_or(kNowhere);
}
std::unique_ptr<Unarchiver> rarUnarchiver(BufferBase* content, ArchiveEntryProcessor& entries, CoveredRanges& covered) {
    return std::make_unique<RarDeepUnarchiver>(content, entries, covered);
}

bool isZipIn(ProbedContent& content, bool isHeld) {
    if (beginsAs<ZipUnarchiver>(content.bytes())) return true;
    if ((content.marks() & kZipMarks) == 0) return false;
    const ZipWithin within = findZipWithin(content.bytes()).what;
    if (within != ZipWithin::header) return within == ZipWithin::archive;
    return !isHeld && !isForeign(content);
}
std::int64_t zipBegin(BufferBase& content) {
    return beginsAs<ZipUnarchiver>(content) ? 0 : findZipWithin(content).begin;
}
std::unique_ptr<Unarchiver> zipUnarchiver(BufferBase* content, ArchiveEntryProcessor& entries, CoveredRanges& covered) {
    return std::make_unique<ZipDeepUnarchiver>(content, entries, covered);
}

// In the order in which they are looked for.
constexpr std::size_t kMostFormats = 10;
constinit std::array<DeepFormat, kMostFormats> formats{{
    {"RAR behind a program", isRarIn, rarUnarchiver, rarBegin},
    {kZipBehindOthers, isZipIn, zipUnarchiver, zipBegin},
}};
constinit std::size_t formatCount = 2;

// Whether the content is an archive that none of the formats above walks; what stands somewhere in it is its business.
// A program that brings one along may bring others along, too.
bool isForeign(ProbedContent& content) {
    const char* const name = content.foreignFormat();
    if (name && std::string_view(name).ends_with(" in a program")) return false;
    const auto end = formats.begin() + formatCount;
    return name && std::none_of(formats.begin(), end, [&](const auto& format) { return format.foreignName == name; });
}

// Walks one format after the other. What ends one walk does not end the next, unless nothing is left for it.
class EachUnarchiver : public Unarchiver {
public:
    EachUnarchiver(const std::vector<const DeepFormat*>& walked, BufferBase* content, ArchiveEntryProcessor& entries) {
        for (const DeepFormat* format : walked) _walks.push_back(format->unarchiver(content, entries, _covered));
    }

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
    CoveredRanges _covered;
    std::vector<std::unique_ptr<Unarchiver>> _walks;
};

// Of formats that are all in the content, the one first that begins first: it tells what is its members' business.
void sortByBegin(std::vector<const DeepFormat*>& found, BufferBase& content) {
    std::vector<std::pair<std::int64_t, const DeepFormat*>> begins;
    begins.reserve(found.size());
    for (const DeepFormat* format : found) begins.emplace_back(format->begin ? format->begin(content) : 0, format);
    std::stable_sort(begins.begin(), begins.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::transform(begins.begin(), begins.end(), found.begin(), [](const auto& begin) { return begin.second; });
}

class DeepArchiveId : public EmptyArchiveId {
public:
    std::unique_ptr<Unarchiver> unarchiver(InputStream*, ArchiveEntryProcessor&, DecompressProcessor*) const override {
        return nullptr;
    }
    std::unique_ptr<Unarchiver> unarchiver(BufferBase* buffer, ArchiveEntryProcessor& entries,
                                           DecompressProcessor*) const override {
        std::vector<const DeepFormat*> walked;
        for (std::size_t i = 0; i < formatCount; ++i) {
            if (has(i)) walked.push_back(&formats[i]);
        }
        if (walked.size() > 1) sortByBegin(walked, *buffer);
        return std::make_unique<EachUnarchiver>(walked, buffer, entries);
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

const ArchiveId& deepFormat(ProbedContent& content, const ArchiveId& plain) {
    std::size_t set = 0;
    for (std::size_t i = 0; i < formatCount; ++i) {
        if (formats[i].isIn(content, set != 0)) set |= std::size_t{1} << i;
    }
    if (set == 0) return plain;
    return ids[set];
}

const ArchiveId& deepFormat(BufferBase& content, const ArchiveId& plain) {
    ProbedContent probed(content);
    return deepFormat(probed, plain);
}

bool isWalked(const ArchiveId& format, std::string_view foreignName) {
    const auto* const deep = dynamic_cast<const DeepArchiveId*>(&format);
    for (std::size_t i = 0; deep && i < formatCount; ++i) {
        if (deep->has(i) && formats[i].foreignName == foreignName) return true;
    }
    return false;
}

}  // namespace ZOV_SPACE
