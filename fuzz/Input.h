// Input.h: one input in the forms that the engine takes, and where its output goes.
#ifndef FUZZ_INPUT_H
#define FUZZ_INPUT_H

#include <algorithm>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "Raise.h"
#include "Target.h"
#include "io/BufferBaseStreams.h"
#include "io/MemBufferBase.h"
#include "unarchiver/Pakfold.h"

namespace ZOV_SPACE {

// The input itself, so that what is read beyond its end is noticed. What is written is lost.
class InputBuffer : public MemBufferBase {
public:
    explicit InputBuffer(std::string_view input) : _input(input) { _setSize(static_cast<long>(input.size())); }

    int read(long pos) override {
        const std::span<const char> bytes = view(pos);
        return bytes.empty() ? -1 : static_cast<unsigned char>(bytes[0]);
    }
    int read(long pos, char* buf, int n) override {
        const std::span<const char> bytes = view(pos);
        const std::size_t count = std::min(bytes.size(), static_cast<std::size_t>(std::max(n, 0)));
        std::copy_n(bytes.data(), count, buf);
        return static_cast<int>(count);
    }
    std::span<const char> view(long pos) override {
        if (pos < 0) raise<IOException>("Index out of bound");
        if (pos >= getSize()) return {};
        return std::span(_input).subspan(static_cast<std::size_t>(pos));
    }

private:
    std::string_view _input;
};

// A PPM block whose model, if it brings one, has a heap of 2 MiB at most: a sanitizer takes its time to prepare larger
// ones, and small ones are full sooner.
inline std::vector<char> withSmallHeap(std::string_view block) {
    constexpr char kNewModel = 0x20;
    std::vector<char> bytes(block.begin(), block.end());
    if (bytes.size() > 1 && (bytes[0] & kNewModel)) bytes[1] = static_cast<char>(bytes[1] & 1);
    return bytes;
}

// Notes as much as a filter's largest block, and takes no more: an input that unpacks to more costs time and shows no
// more.
class NotedOutput : public OutputStream {
public:
    static constexpr int kMost = 1 << 18;

    using OutputStream::write;
    void close() override {}
    int write(char c) override { return write(&c, 1); }
    int write(const char* buf, int len) override {
        note({buf, static_cast<std::size_t>(std::min(len, kMost - _taken))});
        if (len > kMost - _taken) raise<UnarchiveRatioExceed>("full");
        _taken += len;
        return len;
    }

private:
    int _taken = 0;
};

// Has the entries of an archive unpacked, copied and skipped by turns.
class NotedEntries : public ArchiveEntryProcessor {
public:
    std::unique_ptr<OutputStream> processEntry(ArchiveEntryInfo* entry, int& action) override {
        static constexpr int kMost = 50, kTurns[] = {kActionDecompress, kActionDecompress, kActionCopy, kActionSkip};
        note(entry->name + " " + std::to_string(entry->compressedSize) + " " + std::to_string(entry->uncompressedSize));
        action = _count == kMost ? kActionAbort : kTurns[_count % 4];
        ++_count;
        return action == kActionSkip ? nullptr : std::make_unique<NotedOutput>();
    }

private:
    int _count = 0;
};

// Out of a buffer, and out of a stream.
template <class Unarchiver>
void walk(std::string_view input) {
    InputBuffer buffer(input);
    BufferBaseInputStream stream(&buffer);
    NotedEntries entries, streamed;
    noteRefusal([&] { Unarchiver(&buffer, entries, nullptr, 0).start(); });
    noteRefusal([&] { Unarchiver(&stream, streamed, nullptr, 0).start(); });
}

}  // namespace ZOV_SPACE

#endif  // FUZZ_INPUT_H
