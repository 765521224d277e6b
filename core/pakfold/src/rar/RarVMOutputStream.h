// RarVMOutputStream: the window of RAR 2.9, whose blocks filters may change on their way out.
//
// Every failure is an IOException; what the target throws passes through. Used by one thread at a time.
#ifndef PAKFOLD_RAR_RARVMOUTPUTSTREAM_H
#define PAKFOLD_RAR_RARVMOUTPUTSTREAM_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "rar/RarBufferOutputStream.h"
#include "rar/RarTroubles.h"

namespace ZOV_SPACE {

class RarVMOutputStream;
class RarOutputFilter;

// A filter that waits for its block of the output.
struct RarQueuedFilter {
    std::int64_t start;  // Of the block, as a count of bytes put into the window.
    std::unique_ptr<RarOutputFilter> filter;
};

using RarFilterQueue = std::vector<RarQueuedFilter>;

// Replaces a block of the output by something else. The order of the virtual operations is part of the framework's
// contract.
class RarOutputFilter {
public:
    RarOutputFilter() = default;
    RarOutputFilter(const RarOutputFilter&) = delete;
    RarOutputFilter& operator=(const RarOutputFilter&) = delete;
    virtual ~RarOutputFilter();

    virtual std::uint32_t getStart() const = 0;   // Window position where the block begins.
    virtual std::uint32_t getLength() const = 0;  // Of the block.
    // Takes the next bytes of the block, at most n, and returns how many it has then.
    virtual std::uint32_t copy(const unsigned char* bytes, std::uint32_t n) = 0;
    virtual bool ready() const = 0;  // Whether the block is complete.
    // Runs on the block, hands the result to the filters at the queue's front that want it, which leave the queue, and
    // writes what comes out through the stream.
    virtual void execute(RarVMOutputStream* out, RarFilterQueue* queue) = 0;
};

// The window with filters: plain bytes are flushed up to the block of the first filter, which waits until its block is
// complete.
class RarVMOutputStream : public RarBufferOutputStream {
public:
    static constexpr std::size_t kMostPending = 1024;
    static constexpr std::size_t kMostOnOneBlock = 8;

    RarVMOutputStream(OutputStream* target, std::int64_t windowSize, std::int64_t limit,
                      RarBufferOutputStream* previous);
    RarVMOutputStream(OutputStream* target, RarWindow window, std::int64_t limit);
    ~RarVMOutputStream() override;

    using RarBufferOutputStream::flashOutput;
    void flashOutput() override;
    void finishOutput() override;
    bool limitReached() override;

    // Queues a filter whose block begins at or after the write position. False, and the filter is dropped, when
    // kMostPending filters wait, or kMostOnOneBlock at the same start, or the block would not fit in the window.
    bool registerFilter(std::unique_ptr<RarOutputFilter> filter);
    // Forgets the filters that wait; their blocks become plain bytes.
    void dropFilters();
    // What went wrong with filters so far; those who run them add to it.
    RarTroubles& troubles() { return _troubles; }
    // For filters: writes the result for the block at the front.
    void writeFiltered(const unsigned char* bytes, std::uint32_t n) { writeToTarget(bytes, n); }

private:
    bool flushToFirstFilter();
    void runFirstFilter();

    RarTroubles _troubles;
    RarFilterQueue _filters;  // By start, and by registration where starts are equal.
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_RARVMOUTPUTSTREAM_H
