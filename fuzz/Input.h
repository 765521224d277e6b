// Input.h: one input in the forms that the engine takes, and where its output goes.
#ifndef FUZZ_INPUT_H
#define FUZZ_INPUT_H

#include <filesystem>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "io/BufferBase.h"
#include "io/BufferBaseStreams.h"
#include "io/OwnFd.h"
#include "support/TempDir.h"
#include "unarchiver/Pakfold.h"

// The input itself, so that what is read beyond its end is noticed.
class InputBuffer : public ZOV_SPACE::BufferBase {
public:
    explicit InputBuffer(std::string_view input) : _input(input) { _setSize(static_cast<long>(input.size())); }

    int read(long pos) override;
    int read(long pos, char* buf, int n) override;
    std::span<const char> view(long pos) override;
    int write(long, char) override { return 0; }
    int write(long, const char*, int) override { return 0; }
    int insert(long, char) override { return 0; }
    int insert(long, const char*, int) override { return 0; }
    int cut(long) override { return 0; }
    int cut(long, int) override { return 0; }
    int append(char) override { return 0; }
    int append(const char*, int) override { return 0; }
    int truncate(long) override { return 0; }

private:
    std::string_view _input;
};

// A PPM block whose model, if it brings one, has a heap of 2 MiB at most: a sanitizer takes its time to prepare larger
// ones, and small ones are full sooner.
std::vector<char> withSmallHeap(std::string_view block);

// A file whose content is the latest input. It has no place on disk, but can be opened by path.
class InputFile {
public:
    InputFile();
    void set(std::string_view input);
    int fd() const { return _fd.get(); }
    const char* path() const { return _path.c_str(); }

private:
    ZOV_SPACE::OwnFd _fd;
    std::string _path;
};

// A directory in which that file has names.
class InputDir {
public:
    explicit InputDir(std::initializer_list<const char*> names);
    void set(std::string_view input) { _file.set(input); }
    std::string path(const char* name = "") const { return (_dir / name).string(); }

private:
    InputFile _file;
    TempDir _dir;
};

// Takes as much as a filter's largest block, and drops it: an input that unpacks to more costs time and shows no more.
class DroppedOutput : public ZOV_SPACE::OutputStream {
public:
    static constexpr int kMost = 1 << 18;

    using OutputStream::write;
    void close() override {}
    int write(char c) override { return write(&c, 1); }
    int write(const char* buf, int len) override;

private:
    int _taken = 0;
    unsigned char _sum = 0;
};

// Has the entries of an archive unpacked, copied and skipped by turns.
class DroppedEntries : public ZOV_SPACE::ArchiveEntryProcessor {
public:
    static constexpr int kMost = 50;

    std::unique_ptr<ZOV_SPACE::OutputStream> processEntry(ZOV_SPACE::ArchiveEntryInfo* entry, int& action) override;

private:
    int _count = 0;
};

template <class Unarchiver>
void walk(std::string_view input) {
    InputBuffer buffer(input);
    DroppedEntries entries;
    Unarchiver(&buffer, entries, nullptr, 0).start();
}

#endif  // FUZZ_INPUT_H
