// EntryCollector: an entry processor that keeps what an unarchiver tells and writes.
#ifndef TESTS_SUPPORT_ENTRYCOLLECTOR_H
#define TESTS_SUPPORT_ENTRYCOLLECTOR_H

#include <algorithm>
#include <deque>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Raise.h"
#include "StringBuffer.h"
#include "unarchiver/Pakfold.h"

namespace ZOV_SPACE {

struct CollectedEntry : ArchiveEntryInfo {
    std::string bytes;
    int flushed = 0, closed = 0;  // Closed once is right, after which nothing is written.
    bool complete = false;        // By endEntry().
};

class EntryCollector : public ArchiveEntryProcessor {
public:
    explicit EntryCollector(int forAll = kActionDecompress) : action(forAll) {}

    int action;
    std::map<std::string, int> actionOf;  // By name, instead of `action`.
    bool giveStreams = true;
    // Bytes of an entry that are taken; a write beyond them throws UnarchiveRatioExceed.
    std::size_t room = std::numeric_limits<std::size_t>::max();

    std::deque<CollectedEntry> entries;
    int begun = 0, ended = 0, released = 0;
    bool goesOn = false;               // What persists() answers.
    std::vector<std::string> volumes;  // The second one and those behind it.
    std::string troubles;              // "what(member) " of each; of the archive, "what ".

    void beginUnarchiving() override { ++begun; }
    std::unique_ptr<OutputStream> processEntry(ArchiveEntryInfo* entry, int& answer) override {
        CollectedEntry& copy = entries.emplace_back();
        copy.name = entry->name, copy.algorithm = entry->algorithm, copy.flags = entry->flags, copy.time = entry->time;
        copy.compressedSize = entry->compressedSize, copy.uncompressedSize = entry->uncompressedSize;
        copy.checkSum = entry->checkSum;
        const auto own = actionOf.find(entry->name);
        answer = own == actionOf.end() ? action : own->second;
        return giveStreams ? std::make_unique<Sink>(copy, room) : nullptr;
    }
    void endUnarchiving() override { ++ended; }
    void releaseSession() override { ++released; }
    void endEntry(const ArchiveEntryInfo& entry, OutputStream&) override {
        CollectedEntry& last = entries.back();
        if (last.name != entry.name || last.closed != 1) raise<IOException>("ended out of turn");
        last.complete = true;
    }
    void trouble(ArchiveTrouble what, const std::string* member, const std::string& text) override {
        constexpr const char* kWords[] = {"encrypted", "method", "volume", "damaged",
                                          "truncated", "spent",  "format", "checksum"};
        if (text.empty()) raise<IOException>("no text");
        troubles += kWords[static_cast<std::size_t>(what)] + (member ? "(" + *member + ") " : " ");
    }
    bool persists() const override { return goesOn; }
    std::unique_ptr<BufferBase> volume(int number) override {
        const auto index = static_cast<std::size_t>(number) - 2;
        return index < volumes.size() ? std::make_unique<StringBuffer>(volumes[index]) : nullptr;
    }

    // "name=bytes" of all entries, each with a blank behind it.
    std::string contents() const {
        std::string all;
        for (const CollectedEntry& entry : entries) all += entry.name + "=" + entry.bytes + " ";
        return all;
    }
    // Names of the entries that came to their end, each with a blank behind it.
    std::string completed() const {
        std::string all;
        for (const CollectedEntry& entry : entries) all += entry.complete ? entry.name + " " : "";
        return all;
    }

private:
    class Sink : public OutputStream {
    public:
        Sink(CollectedEntry& entry, std::size_t room) : _entry(entry), _room(room) {}

        using OutputStream::write;
        void close() override { ++_entry.closed; }
        void flush() override { ++_entry.flushed; }
        int write(char c) override { return write(&c, 1); }
        int write(const char* buf, int len) override {
            if (_entry.closed) raise<IOException>("written after close()");
            const std::size_t fitting = std::min(static_cast<std::size_t>(len), _room - _entry.bytes.size());
            _entry.bytes.append(buf, fitting);
            if (fitting < static_cast<std::size_t>(len)) raise<UnarchiveRatioExceed>("full");
            return len;
        }

    private:
        CollectedEntry& _entry;
        std::size_t _room;
    };
};

}  // namespace ZOV_SPACE

#endif  // TESTS_SUPPORT_ENTRYCOLLECTOR_H
