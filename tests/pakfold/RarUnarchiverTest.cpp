#include "rar/RarUnarchiver.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "rar/RarBlock.h"
#include "support/CapturedLog.h"
#include "support/EntryCollector.h"
#include "support/RarBuilder.h"
#include "support/RarEncoder.h"
#include "support/StopAfter.h"
#include "support/StringBuffer.h"
#include "support/Thrown.h"
#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {
namespace {

using B = RarBuilder;

const std::string kNotRar = "! Not a rar package";
const std::string kBadArchive = "! Rar archive info error";
const std::string kBadHead = "! Rar head error";
const std::string kDecoded = "! Unsupported RAR unpack version:15";  // What asking for that version shows.

// What the walk hands over, then "! " and the text of the ArchivingException that ends it.
std::string walk(const std::string& bytes, EntryCollector& entries, unsigned offset = 0,
                 DecompressProcessor* decompression = nullptr) {
    StringBuffer buffer(bytes);
    RarUnarchiver unarchiver(&buffer, entries, decompression, offset);
    const std::string error = thrownBy<ArchivingException>([&] { unarchiver.start(); });
    return entries.contents() + (error == "<nothing>" ? "" : "! " + error);
}

std::string walk(const std::string& bytes, unsigned offset = 0) {
    EntryCollector entries;
    return walk(bytes, entries, offset);
}

// The blocks between an archive header and a last entry "z".
std::string around(const std::string& blocks) {
    return B::marker() + B::archive() + blocks + B::stored("z", "zz") + B::end();
}

std::string changed(std::string bytes, std::size_t at, unsigned char mask) {
    bytes[at] = static_cast<char>(static_cast<unsigned char>(bytes[at]) ^ mask);
    return bytes;
}

// A file block as `change` makes it, holding "hello".
template <class Change>
std::string fileWith(Change change) {
    RarFile file;
    file.name = "a";
    file.data = "hello";
    change(file);
    return B::file(file);
}

// `depth` blocks, each within the one before it. The block around them needs the flag that announces them.
std::string nestedArchives(int depth) {
    std::string inner = B::block(0x75, 0, "text");
    for (int i = 1; i < depth; ++i) inner = B::archive(RarBlock::kHasNested, inner);
    return inner;
}

TEST(RarUnarchiver, findsItsMarkerAndItsArchiveHeader) {
    const std::string entry = B::stored("a", "hello"), good = B::marker() + B::archive() + entry;
    for (std::size_t i = 0; i < 7; ++i) EXPECT_EQ(walk(changed(good, i, 0x80)), kNotRar) << i;
    for (std::size_t i = 7; i < 20; ++i) EXPECT_EQ(walk(changed(good, i, 0x01)), kBadArchive) << i;

    const std::string reserved(6, '\0'), text = B::block(0x75, 0, "text"), found = "a=hello ";
    const std::pair<std::string, std::string> headers[] = {
        {B::block(0x73, 0, "\1\2\3\4\5\6"), found},
        {B::block(0x73, 0x8000, reserved, "some data"), found},
        {B::block(0x73, 0x0200, reserved + "v and what is unknown"), found},
        {B::block(0x73, 0x0002, reserved + text), found},
        {B::block(0x73, 0x0002, reserved + text + "behind it"), found},
        {B::archive(0x0002, text), found},
        {B::archive(0x0002, nestedArchives(8)), found},
        {B::archive(0x0002, nestedArchives(9)), kBadArchive},
        {B::block(0x73, 0, reserved, "", 12), kBadArchive},
        {B::block(0x73, 0x0002, reserved), kBadArchive},
        {B::block(0x73, 0x0002, reserved + text.substr(0, text.size() - 1)), kBadArchive},
        {B::block(0x73, 0x0002, reserved + "1234567"), kBadArchive},
        {"", kBadArchive},
    };
    for (const auto& [header, expected] : headers) {
        EXPECT_EQ(walk(B::marker() + header + entry), expected) << testing::PrintToString(header);
    }
    EXPECT_EQ(walk(""), kNotRar);
    EXPECT_EQ(walk(B::marker()), kBadArchive);
}

TEST(RarUnarchiver, offsetsNameTheByteBehindTheMarker) {
    const std::string good = B::marker() + B::archive() + B::stored("a", "hello");
    const struct {
        std::size_t before;
        unsigned offset;
        bool found;
    } rows[] = {{0, 7, true},      {100, 107, true},       {100, 1, false},        {100, 6, false},
                {100, 106, false}, {100, 108, false},      {100, 524296, false},   {100, 0x80000000, false},
                {100, ~0u, false}, {524288, 524295, true}, {524289, 524296, false}};
    for (const auto& row : rows) {
        EXPECT_EQ(walk(std::string(row.before, 'x') + good, row.offset), row.found ? "a=hello " : kNotRar)
            << row.before << " " << row.offset;
    }
}

TEST(RarUnarchiver, readsHeadersToTheEndThatTheyAnnounce) {
    const std::string fullTime = "\xFF\xFFwwwxxxxxxxyyyyyyyzzzzzzz";
    const std::string shortTime = "\x08\xB0xxxxyyy";  // Creation with three more bytes, archiving without.
    const auto everything = [&](RarFile& f) {
        f.flags = 0x1500, f.salt = "saltsalt", f.extendedTime = fullTime, f.unpackedHigh = 9, f.extra = "unknown";
    };
    const std::pair<const char*, std::string> cases[] = {
        {"plain", fileWith([](RarFile&) {})},
        {"64-bit sizes", fileWith([](RarFile& f) { f.flags = 0x0100; })},
        {"no flag for the packed size", fileWith([](RarFile& f) { f.hasDataFlag = false; })},
        {"salt", fileWith([](RarFile& f) { f.flags = 0x0400, f.salt = "saltsalt"; })},
        {"times", fileWith([&](RarFile& f) { f.flags = 0x1000, f.extendedTime = fullTime; })},
        {"some times", fileWith([&](RarFile& f) { f.flags = 0x1000, f.extendedTime = shortTime; })},
        {"times cut", fileWith([&](RarFile& f) { f.flags = 0x1000, f.extendedTime = fullTime.substr(0, 9); })},
        {"times cut in the groups", fileWith([&](RarFile& f) { f.flags = 0x1000, f.extendedTime = "\xFF"; })},
        {"times missing", fileWith([](RarFile& f) { f.flags = 0x1000; })},
        {"all of them", fileWith(everything)},
        {"all of them, checked alone", fileWith([&](RarFile& f) { everything(f), f.extraInCrc = false; })},
        {"encoded name", fileWith([](RarFile& f) { f.flags = 0x0200, f.name = std::string("a\0\1\2\3", 5); })},
        {"nested", fileWith([&](RarFile& f) { f.flags = 0x0002, f.extra = B::block(0x75, 0, "text") + "more"; })},
        {"nested to the bound", fileWith([&](RarFile& f) { f.flags = 0x0002, f.extra = nestedArchives(8); })},
    };
    for (const auto& [what, block] : cases) {
        SCOPED_TRACE(what);
        CapturedLog log;
        EXPECT_EQ(walk(around(block)), "a=hello z=zz ");
        EXPECT_EQ(log.count("Rar Broken File Header!"), 0u);
    }
    EXPECT_EQ(walk(around(fileWith([](RarFile& f) { f.name = "cut", f.nameSize = 500; }))), "cut=hello z=zz ");
    EXPECT_EQ(walk(around(fileWith([](RarFile& f) { f.name = ""; }))), "=hello z=zz ");
}

TEST(RarUnarchiver, describesEntries) {
    EntryCollector entries(kActionSkip);
    entries.giveStreams = false;
    walk(around(fileWith([](RarFile& f) { f.name = "dir\\a", f.unpackedSize = 70000; }) +
                fileWith([](RarFile& f) { f.flags = 0x0100, f.unpackedHigh = 1; }) +
                fileWith([](RarFile& f) { f.flags = 0x0100, f.packedHigh = ~0u, f.unpackedHigh = ~0u; })),
         entries);
    ASSERT_EQ(entries.entries.size(), 3u);  // The third reaches beyond any source, so that nothing can follow.
    const CollectedEntry &first = entries.entries[0], &second = entries.entries[1], &third = entries.entries[2];
    EXPECT_EQ(first.name, "dir\\a");
    EXPECT_TRUE(first.algorithm == 4 && first.flags == 0x20 && first.time == 0x2D6A8C61u);
    EXPECT_TRUE(first.compressedSize == 5 && first.uncompressedSize == 70000 && first.checkSum == 0x12345678u);
    EXPECT_TRUE(second.uncompressedSize == -1 && third.compressedSize == -1 && third.uncompressedSize == -1);
}

TEST(RarUnarchiver, passesOverWhatIsNoEntry) {
    for (unsigned type = 0x75; type <= 0x7B; ++type) {
        EXPECT_EQ(walk(around(B::block(type, 0, "rest") + B::block(type, 0x8000, "rest", "data"))), "z=zz ") << type;
    }
    EXPECT_EQ(walk(around(B::block(0x7A, 0x8000, "", std::string(70000, 'x')))), "z=zz ");
    EXPECT_EQ(walk(around(B::marker() + B::archive() + B::block(0x73, 0x8000, "123456", "data"))), "z=zz ");
    CapturedLog log;
    EXPECT_EQ(walk(around(B::stored("a", "hello", 0x0001))), "z=zz ");
    EXPECT_EQ(log.count("Skip this entry for LHD_SPLIT_BEFORE"), 1u);
    // No data, or more than can be read: offered, but nothing is read.
    EXPECT_EQ(walk(around(B::stored("a", ""))), "a= z=zz ");
    EXPECT_EQ(walk(around(fileWith([](RarFile& f) { f.packedSize = 0x80000000; }))), "a= ");
    EXPECT_EQ(walk(around(fileWith([](RarFile& f) { f.packedSize = 0xFFFFFFFF; }))), "a= ");
    EXPECT_EQ(walk(around(fileWith([](RarFile& f) { f.packedSize = 0x7FFFFFFF; }))),
              "a=hello" + B::stored("z", "zz") + B::end() + " ");
}

TEST(RarUnarchiver, endsAtWhatItCannotRead) {
    const std::vector<std::string> ends{"", B::block(0x7C, 0, ""), B::block(0x71, 0, ""), std::string(64, '\0'),
                                        "short"};
    const std::vector<std::string> broken{
        B::stored("e", "hello", 0x0004),
        B::stored("e", "hello", 0x0005),
        B::stored("e", "hello", 0x0002),  // The data is not taken for a nested block.
        fileWith([](RarFile& f) { f.flags = 0x0002, f.extra = nestedArchives(9); }),
        fileWith([](RarFile& f) { f.flags = 0x0400, f.salt = "seven.."; }),
        fileWith([](RarFile& f) { f.flags = 0x0100, f.headerSize = 39; }),
        fileWith([](RarFile& f) { f.headerSize = 31; }),
        fileWith([](RarFile& f) { f.headerSize = 0; }),
        fileWith([](RarFile& f) { f.flags = 0x0001, f.headerSize = 31; }),
        B::block(0x7A, 0x8000, "", "data", 10),
        B::block(0x7B, 0, "", "", 6),
        B::block(0x73, 0, "12345"),
        B::block(0x72, 0, "", "", 0),
    };
    for (const auto* const group : {&ends, &broken}) {
        for (const std::string& blocks : *group) {
            SCOPED_TRACE(testing::PrintToString(blocks));
            const std::string bytes = B::marker() + B::archive() + B::stored("a", "hello") + blocks;
            const std::string expected = "a=hello " + (group == &broken ? kBadHead : "");
            EXPECT_EQ(walk(bytes), expected);
            // Then it counts as a block, and nothing behind it as one more.
            EXPECT_TRUE(blocks.size() < 7 || walk(bytes + B::stored("z", "zz")) == expected);
        }
    }
    CapturedLog log;
    walk(around(B::stored("e", "hello", 0x0004)));
    EXPECT_EQ(log.count("RarUnarchiver: nead passwd"), 1u);
    walk(around(B::block(0x7C, 0, "")));
    EXPECT_EQ(log.count("Unknown rar type [7c]"), 1u);
    EXPECT_EQ(log.count("h_type[72], h_flags[1a21], h_size[0007]a_size[00000000]"), 2u);
    EXPECT_EQ(log.count("RarUnarchiver::start"), 2u);
    StringBuffer empty("");
    EntryCollector entries;
    EXPECT_EQ(unitThrownBy([&] { RarUnarchiver(&empty, entries, nullptr, 0).start(); }),
              "../../core/pakfold/src/unarchiver/Rar");
}

// Entries with broken headers are offered unless they are solid.
TEST(RarUnarchiver, doesWithAnEntryWhatTheProcessorSays) {
    struct Case {
        unsigned archiveFlags, flags, method;
        int action;
        bool stream;
        std::string expected;
        bool broken = false;
    };
    constexpr unsigned kSolid = 0x0010, kSolidArchive = 0x0008;
    constexpr int kAbort = kActionAbort, kSkip = kActionSkip, kCopy = kActionCopy, kUnpack = kActionDecompress;
    const std::string aborted = "a= ! Archiving aborted", decoded = "a= " + kDecoded;
    const Case cases[] = {{0, 0, 0x30, kAbort, true, aborted},
                          {0, 0, 0x30, kSkip, true, "a= z=zz "},
                          {0, 0, 0x30, kCopy, true, "a=hello z=zz "},
                          {0, 0, 0x30, kCopy, false, "a= z= "},
                          {0, kSolid, 0x30, kSkip, true, "a= z=zz "},
                          {0, kSolid, 0x30, kUnpack, true, "a=hello z=zz "},
                          {0, 0, 0x35, kAbort, true, aborted},
                          {0, 0, 0x35, kSkip, true, "a= z=zz "},
                          {0, 0, 0x35, 3, true, "a= z=zz "},
                          {0, 0, 0x35, kCopy, true, "a=hello z=zz "},
                          {0, 0, 0x35, kUnpack, false, "a= z= "},
                          {0, 0, 0x35, kUnpack, true, decoded},
                          {0, 0, 0x2F, kUnpack, true, decoded},
                          {0, kSolid, 0x35, kAbort, true, aborted},
                          {0, kSolid, 0x35, kSkip, true, decoded},
                          {0, kSolid, 0x35, kCopy, false, decoded},
                          {0, kSolid, 0x35, kUnpack, true, decoded},
                          {kSolidArchive, 0, 0x35, kSkip, true, decoded},
                          {kSolidArchive, 0, 0x30, kSkip, true, "a= z=zz "},
                          {0, 0, 0x30, kUnpack, true, "a=hello z=zz ", true},
                          {0, 0, 0x33, kUnpack, true, decoded, true},
                          {0, kSolid, 0x30, kUnpack, true, "z=zz ", true},
                          {0, kSolid, 0x33, kUnpack, true, kDecoded, true}};
    for (const Case& c : cases) {
        SCOPED_TRACE("row " + std::to_string(&c - cases));
        CapturedLog log;
        EntryCollector entries;
        entries.actionOf["a"] = c.action;
        entries.giveStreams = c.stream;
        const std::string entry =
            fileWith([&](RarFile& f) { f.flags = c.flags, f.method = c.method, f.unpVer = 15, f.broken = c.broken; });
        EXPECT_EQ(walk(B::marker() + B::archive(c.archiveFlags) + entry + B::stored("z", "zz"), entries), c.expected);
        EXPECT_EQ(log.count("Rar Broken File Header!"), c.broken ? 1u : 0u);
        if (!c.stream || entries.entries.size() < 2) continue;
        for (const CollectedEntry& each : entries.entries) EXPECT_EQ(each.flushed + each.closed, 2);
    }
}

// The archive does not say that the second entry builds on the first one.
TEST(RarUnarchiver, decodesWhatWasPassedOverOnceASolidEntryNeedsIt) {
    RarEncoder encoder(20);
    encoder.text("0123456789");
    const std::string first = encoder.finish();
    encoder.match(10, 10);
    const std::string second = encoder.finish(), stored = B::stored("s", "stored");
    for (const unsigned archiveFlags : {0x0000U, 0x0008U}) {
        for (const int action : {kActionSkip, kActionCopy, kActionDecompress}) {
            EntryCollector entries;
            entries.actionOf["a"] = action;
            entries.room = action == kActionDecompress ? 5 : 1000;  // The first one is cut short.
            walk(B::marker() + B::archive(archiveFlags) + B::packed("a", first, 10, 20) + stored +
                     B::packed("b", second, 10, 20, true),
                 entries);
            EXPECT_EQ(entries.entries.back().bytes, std::string("0123456789").substr(0, entries.room)) << action;
        }
    }
}

TEST(RarUnarchiver, saysWhatWasGivenUp) {
    const auto filtered = [](std::size_t filters, std::uint32_t length) {
        RarEncoder encoder(29);
        for (std::uint32_t i = 0; i < filters; ++i) {
            encoder.filter(kFilterHead,
                           filterOf(i > 0, 0, length, i ? std::vector<unsigned char>{} : incrementProgram()));
        }
        encoder.text("hello");
        return B::packed("a", encoder.finish(), 5, 29);
    };
    const std::string incomplete = "Rar entry <a> is incomplete: 4 of 9 bytes are missing.";
    const struct {
        std::string entry;
        std::string line;
        std::int64_t instructions = 1000, codeBytes = 1000;  // That are left.
    } rows[] = {
        {fileWith([](RarFile& f) { f.unpackedSize = 9; }), incomplete},
        {B::packed("a", RarEncoder::literals(29, "hello"), 9, 29), incomplete},
        {filtered(2, 6), "Rar entry <a>: a filter was not run."},
        {filtered(9, 5), "Rar entry <a>: too many filters."},
        {filtered(3, 5), "Rar entry <a>: instructions for filters ran out.", 10},
        {filtered(1, 5), "Rar entry <a>: room for filters' code ran out.", 1000, 10},
    };
    for (const auto& row : rows) {
        ScanBudget budget;
        const ScanBudget::Scope scope(budget);
        ScanBudget::takeVmInstructions(ScanBudget::kVmInstructions - row.instructions);
        ScanBudget::takeVmCodeBytes(ScanBudget::kVmCodeBytes - row.codeBytes);
        CapturedLog log(CapturedLog::kErrors);
        walk(around(row.entry));
        EXPECT_EQ(log.count(row.line), 1U) << row.line;
    }
    CapturedLog log(CapturedLog::kErrors);
    walk(around(filtered(8, 5)));
    EXPECT_TRUE(log.lines().empty()) << log.lines()[0];
}

TEST(RarUnarchiver, aFullSinkEndsItsEntryOnly) {
    for (const int action : {kActionCopy, kActionDecompress}) {
        EntryCollector entries(action);
        entries.room = 3;
        EXPECT_EQ(walk(around(B::stored("a", "hello") + B::stored("b", std::string(20000, 'b'), 0x0010)), entries),
                  "a=hel b=bbb z=zz ");
    }
}

TEST(RarUnarchiver, tellsTheProcessorsOfEveryEntry) {
    StopAfter counter(1000);
    EntryCollector entries;
    walk(around(B::stored("a", "hello") + B::stored("s", "split", 0x0001)), entries, 0, &counter);
    EXPECT_TRUE(counter.begun == 2 && entries.begun == 2 && entries.ended + entries.released == 0);
}

}  // namespace
}  // namespace ZOV_SPACE
