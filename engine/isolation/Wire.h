// Wire.h: how an isolated scanner and its worker talk to each other.
//
// They are two halves of one build, so numbers and structures are as the machine has them. A socket that keeps messages
// apart carries orders one way and bells the other; descriptors go with orders only. What is long goes through two
// pieces of memory that both have mapped: only the scanner writes to the inbox, where contents lie, and only the worker
// to the outbox, where it appends frames. So a file costs no message of its own, and what a worker had to say before it
// died is still there.
//
//     scanner                                worker
//     start  (the set, both memories)   ->
//                                       <-   ready
//     scan   (up to kMostItems contents)->
//                                       <-   full, event, volume, bytes, file: the scanner has to do something
//     goOn, stop, read                  ->   meanwhile, and says that it did
//                                       <-   done, with a result frame for each content in the outbox
//
// With every bell the worker has written what it wants read, and writes no more until it is answered. The scanner
// empties the outbox before it answers. It believes nothing of what comes: see ReplyReader.
#ifndef ENGINE_ISOLATION_WIRE_H
#define ENGINE_ISOLATION_WIRE_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "SmallFiles.h"
#include "vole.h"

namespace isolation {

// Descriptors that a worker is started with, in this order; nothing else is open in it but /dev/null three times.
constexpr int kSocketFd = 3, kSetFd = 4, kInboxFd = 5, kOutboxFd = 6;

using Version = std::array<char, 32>;  // NULs behind it.

inline Version versionText() {
    Version text{};
    const std::string_view version = vole_version();
    version.copy(text.data(), text.size() - 1);
    return text;
}

struct Inbox {
    // Set by the scanner from any thread; the worker ends its scan for it.
    alignas(64) std::atomic<bool> cancelled;
    alignas(64) std::array<char, SmallFiles::kMostBytes> bytes;
};

struct Outbox {
    // Of the bytes, how many the worker has written since the scanner set this to 0.
    alignas(64) std::atomic<std::uint32_t> used;
    // Contents that it is done with, since it was started; the scanner's clock begins anew with each.
    std::atomic<std::uint32_t> results;
    alignas(64) std::array<std::byte, std::size_t{256} << 10> bytes;
};

static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<std::uint32_t>::is_always_lock_free);

// ------------------------------------------------------------------------------------------ from scanner to worker

constexpr std::size_t kMostItems = SmallFiles::kTogether;

enum class OrderKind : std::uint32_t { start, scan, goOn, stop, read };

// Where a content is: in the inbox, or behind the descriptor that comes with the order, which has one item then.
struct Item {
    std::uint64_t offset;
    std::uint64_t size;
};

struct Order {
    OrderKind kind;
    // Of start.
    Version version;
    std::uint64_t maxMemory;  // Bytes of address space besides what is mapped by then; 0 for no limit.
    // Of scan.
    vole_limits limits;
    std::uint32_t flags;  // VOLE_SCAN_...
    std::uint32_t itemCount;
    std::uint64_t spentUs;     // Of the time limit, before the worker got to hear of the content.
    std::uint8_t hasFile;      // 1: the descriptor is what is scanned, and there are no items.
    std::uint8_t hasVolumes;   // 1: others may lie beside each content, and the worker may ask for them.
    std::uint8_t wantsEvents;  // 1: the host listens.
    std::array<Item, kMostItems> items;
    // Of read: what the host wants to see of the content that an event shows.
    std::uint64_t offset;
    std::uint64_t size;
};

// ------------------------------------------------------------------------------------------ from worker to scanner

enum class BellKind : std::uint32_t {
    ready,   // It has the set and may do no more than scan.
    failed,  // It cannot work here; a text frame says why.
    done,    // All items have their results.
    full,    // The outbox is; nothing is wanted but that it be read.
    event,   // There is an event frame, and the host is to be told.
    bytes,   // There is a bytes frame, as the scanner wanted.
    volume,  // A volume is wanted. Its descriptor comes with goOn; without one there is none.
    file     // A temporary file is wanted, which comes in the same way. Behind done nothing can be written to it.
};

struct Bell {
    BellKind kind;
    // Of a volume: of which item, and its own.
    std::uint32_t item;
    std::uint32_t number;
};

// Each frame has this head, then one of the structures below, then what that says. They are the same for 32 and 64
// bits, so that what was kept of them to try the reader with is, too.
enum class FrameKind : std::uint32_t { name, finding, reason, result, event, bytes, text };

struct FrameHead {
    FrameKind kind;
    std::uint32_t size;  // Bytes that follow.
};

// The own name of a content. It has a number: how many came before it since the last result, and one more. `archive` is
// the number of the archive's name, 0 for what is scanned itself, which has none.
struct NameFrame {
    std::uint32_t archive;
};

struct FindingFrame {  // And the signature's name.
    std::uint32_t content;
    std::uint32_t kind;
    std::uint32_t form;
    alignas(8) std::uint64_t offset;
};

struct ReasonFrame {  // And the text.
    std::uint32_t content;
    std::uint32_t code;
};

struct ResultFrame {  // And the error's text. Ends what belongs to one content.
    std::uint32_t error;
    alignas(8) vole_counters counters;
};

// And the text, which is the signature's name, the reason's text or the packing method; and the components of the path,
// each with its size, 32 bits, in front of it.
struct EventFrame {
    std::uint32_t type;
    std::uint32_t componentCount;
    std::uint32_t textSize;
    std::uint32_t kind;  // Of a finding; a reason's code.
    std::uint32_t form;
    std::uint32_t isPacked;
    std::uint32_t checksum;
    alignas(8) std::uint64_t size;
    std::uint64_t bytesDone;
    std::uint64_t offset;
    std::uint64_t packedSize;
};

static_assert(sizeof(FindingFrame) == 24 && sizeof(ResultFrame) == 64 && sizeof(EventFrame) == 64);

// Temporary files that a worker may have at a time, and bytes of one. The scanner watches what they take together.
constexpr std::size_t kMostTemporaryFiles = 192;
constexpr std::uint64_t kMostTemporaryBytes = std::uint64_t{1} << 31;

// Bytes that one bytes frame may have.
constexpr std::size_t kMostRead = std::size_t{64} << 10;

}  // namespace isolation

#endif  // ENGINE_ISOLATION_WIRE_H
