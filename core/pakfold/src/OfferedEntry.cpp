#include "OfferedEntry.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <span>

#include "EntryStreams.h"
#include "Raise.h"
#include "streams/StreamTroubles.h"

namespace ZOV_SPACE {
namespace {

std::unique_ptr<OutputStream> ask(ArchiveEntryProcessor& entries, ArchiveEntryInfo& entry) {
    int action = kActionSkip;
    std::unique_ptr<OutputStream> out = entries.processEntry(&entry, action);
    if (action == kActionAbort) raise<ArchivingException>("Archiving aborted");
    if (action != kActionCopy && action != kActionDecompress) out.reset();
    return out;
}

}  // namespace

OfferedEntry::OfferedEntry(ArchiveEntryProcessor& entries, ArchiveEntryInfo& entry)
    : _entries(entries), _entry(entry), _out(ask(entries, entry)) {}

void OfferedEntry::fill(const Write& write) {
    TakenOutputStream taking(_out.get());
    try {
        write(taking);
    } catch (const UnarchiveRatioExceed&) {
    } catch (IOException& failure) {
        tell(streamTroubles::of(failure.getMessage()), failure.getMessage());
    } catch (CompressionException& failure) {
        tell(streamTroubles::of(failure.getMessage()), failure.getMessage());
    }
    _out->flush();
    _out->close();
    _entries.endEntry(_entry, *_out);
}

int entrySize(std::int64_t bytes) {
    constexpr std::int64_t kMost = std::numeric_limits<std::uint32_t>::max();
    return static_cast<int>(static_cast<std::uint32_t>(std::min(bytes, kMost)));
}

void copyRange(BufferBase& buffer, std::int64_t start, std::int64_t size, OutputStream& out) {
    constexpr std::int64_t kPiece = 65536;
    std::unique_ptr<char[]> own;
    const std::int64_t end = start + std::min(size, std::max<std::int64_t>(buffer.getSize() - start, 0));
    for (std::int64_t at = start; at < end;) {
        std::span<char> space = own ? std::span<char>() : out.lendSpace();
        const bool isLent = !space.empty();
        if (!own && !isLent) own = std::make_unique_for_overwrite<char[]>(kPiece);
        if (!isLent) space = {own.get(), kPiece};
        const auto wanted = std::min({static_cast<std::int64_t>(space.size()), end - at, std::int64_t{1} << 30});
        const int count = buffer.read(static_cast<long>(at), space.data(), static_cast<int>(wanted));
        if (isLent) {
            out.commitSpace(std::max(count, 0));
        } else if (count > 0) {
            out.write(space.data(), count);
        }
        if (count < 1) return;  // The buffer remembers what could not be read.
        at += count;
    }
}

}  // namespace ZOV_SPACE
