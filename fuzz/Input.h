// Input.h: one input in the forms that the engine takes, and where its output goes.
#ifndef FUZZ_INPUT_H
#define FUZZ_INPUT_H

#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "Target.h"
#include "io/BufferBaseStreams.h"
#include "io/MemBufferBase.h"
#include "unarchiver/Pakfold.h"

// The input itself, so that what is read beyond its end is noticed. What is written is lost.
class InputBuffer : public ZOV_SPACE::MemBufferBase {
public:
    explicit InputBuffer(std::string_view input) : _input(input) { _setSize(static_cast<long>(input.size())); }

    int read(long pos) override;
    int read(long pos, char* buf, int n) override;
    std::span<const char> view(long pos) override;

private:
    std::string_view _input;
};

// A PPM block whose model, if it brings one, has a heap of 2 MiB at most: a sanitizer takes its time to prepare larger
// ones, and small ones are full sooner.
std::vector<char> withSmallHeap(std::string_view block);

// Notes as much as a filter's largest block, and takes no more: an input that unpacks to more costs time and shows no
// more.
class NotedOutput : public ZOV_SPACE::OutputStream {
public:
    static constexpr int kMost = 1 << 18;

    using OutputStream::write;
    void close() override {}
    int write(char c) override { return write(&c, 1); }
    int write(const char* buf, int len) override;

private:
    int _taken = 0;
};

// Has the entries of an archive unpacked, copied and skipped by turns.
class NotedEntries : public ZOV_SPACE::ArchiveEntryProcessor {
public:
    static constexpr int kMost = 50;

    std::unique_ptr<ZOV_SPACE::OutputStream> processEntry(ZOV_SPACE::ArchiveEntryInfo* entry, int& action) override;

private:
    int _count = 0;
};

// Out of a buffer, and out of a stream.
template <class Unarchiver>
void walk(std::string_view input) {
    InputBuffer buffer(input);
    ZOV_SPACE::BufferBaseInputStream stream(&buffer);
    NotedEntries entries, streamed;
    noteRefusal([&] { Unarchiver(&buffer, entries, nullptr, 0).start(); });
    noteRefusal([&] { Unarchiver(&stream, streamed, nullptr, 0).start(); });
}

#endif  // FUZZ_INPUT_H
