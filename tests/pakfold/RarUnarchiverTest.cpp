#include "unarchiver/Rar.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "io/BufferBaseStreams.h"
#include "io/MemBufferBase.h"
#include "support/CapturedLog.h"
#include "support/EntryCollector.h"
#include "support/RarBuilder.h"
#include "support/Thrown.h"
#include "unarchiver/RarBlock.h"

namespace ZOV_SPACE {
namespace {

using B = RarBuilder;

constexpr const char* kUnit = "../../core/pakfold/src/unarchiver/Rar";
const std::string kNotRar = "! Not a rar package";
const std::string kBadArchive = "! Rar archive info error";
const std::string kBadHead = "! Rar head error";
const std::string kDecoded = "! Unsupported RAR unpack version:15";  // What asking for that version shows.

// What the walk hands over, then "! " and the text of the ArchivingException that ends it.
std::string walk(const std::string& bytes, EntryCollector& entries, unsigned offset = 0,
                 DecompressProcessor* decompression = nullptr) {
    MemBufferBase buffer;
    buffer.append(bytes.data(), static_cast<int>(bytes.size()));
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
    const std::string good = B::marker() + B::archive() + B::stored("a", "hello");
    for (std::size_t i = 0; i < 7; ++i) EXPECT_EQ(walk(changed(good, i, 0x80)), kNotRar) << i;
    for (std::size_t i = 7; i < 20; ++i) EXPECT_EQ(walk(changed(good, i, 0x01)), kBadArchive) << i;

    const std::string entry = B::stored("a", "hello");
    const auto archive = [&](unsigned flags, const std::string& fields, const std::string& data = "",
                             std::optional<unsigned> size = {}) {
        return walk(B::marker() + B::block(0x73, flags, fields, data, size) + entry);
    };
    const std::string reserved(6, '\0');
    const std::string text = B::block(0x75, 0, "text");
    EXPECT_EQ(walk(""), kNotRar);
    EXPECT_EQ(walk(B::marker()), kBadArchive);
    EXPECT_EQ(walk(B::marker() + entry), kBadArchive);
    EXPECT_EQ(archive(0, "\1\2\3\4\5\6"), "a=hello ");
    EXPECT_EQ(archive(0x8000, reserved, "some data"), "a=hello ");
    EXPECT_EQ(archive(0x0200, reserved + "v and what is unknown"), "a=hello ");
    EXPECT_EQ(archive(0, reserved, "", 12), kBadArchive);
    EXPECT_EQ(archive(0x0002, reserved + text), "a=hello ");
    EXPECT_EQ(archive(0x0002, reserved + text + "behind it"), "a=hello ");
    EXPECT_EQ(archive(0x0002, reserved), kBadArchive);
    EXPECT_EQ(archive(0x0002, reserved + text.substr(0, text.size() - 1)), kBadArchive);
    EXPECT_EQ(archive(0x0002, reserved + "1234567"), kBadArchive);
    EXPECT_EQ(walk(B::marker() + B::archive(0x0002, text) + entry), "a=hello ");
    EXPECT_EQ(walk(B::marker() + B::archive(0x0002, nestedArchives(8)) + entry), "a=hello ");
    EXPECT_EQ(walk(B::marker() + B::archive(0x0002, nestedArchives(9)) + entry), kBadArchive);
}

TEST(RarUnarchiver, offsetsNameTheByteBehindTheMarker) {
    const std::string good = B::marker() + B::archive() + B::stored("a", "hello");
    for (const unsigned offset : {1u, 2u, 3u, 4u, 5u, 6u, 106u, 108u, 524296u, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(walk(std::string(100, '\0') + good, offset), kNotRar) << offset;
    }
    EXPECT_EQ(walk(std::string(100, '\0') + good, 107), "a=hello ");
    EXPECT_EQ(walk(good, 7), "a=hello ");
    EXPECT_EQ(walk(std::string(524288, 'x') + good, 524295), "a=hello ");
    EXPECT_EQ(walk(std::string(524289, 'x') + good, 524296), kNotRar);
}

TEST(RarUnarchiver, checkFormatLeavesTheStreamWhereItIs) {
    const CrcArchiveId<RarUnarchiver, RarCrc> id;
    for (const auto& [bytes, isRar] : {std::pair{B::marker() + "x", true},
                                       {B::marker().substr(0, 6), false},
                                       {changed(B::marker(), 6, 1), false},
                                       {"PK\3\4 and more", false},
                                       {B::archive(), false},
                                       {"", false}}) {
        MemBufferBase buffer;
        buffer.append("#", 1);
        buffer.append(bytes.data(), static_cast<int>(bytes.size()));
        BufferBaseInputStream in(&buffer, 1);
        EXPECT_EQ(id.accept(in), isRar) << bytes;
        EXPECT_EQ(in.available(), static_cast<int>(bytes.size()));
    }
}

TEST(RarUnarchiver, readsHeadersToTheEndThatTheyAnnounce) {
    const std::string fullTime = "\xFF\xFFwwwxxxxxxxyyyyyyyzzzzzzz";
    const std::string shortTime = "\x08\xB0xxxxyyy";  // Creation with three more bytes, archiving without.
    const std::string text = B::block(0x75, 0, "text");
    const std::pair<const char*, std::string> cases[] = {
        {"plain", fileWith([](RarFile&) {})},
        {"64-bit sizes", fileWith([](RarFile& f) { f.flags = 0x0100; })},
        {"salt", fileWith([](RarFile& f) { f.flags = 0x0400, f.salt = "saltsalt"; })},
        {"times", fileWith([&](RarFile& f) { f.flags = 0x1000, f.extendedTime = fullTime; })},
        {"some times", fileWith([&](RarFile& f) { f.flags = 0x1000, f.extendedTime = shortTime; })},
        {"times cut", fileWith([&](RarFile& f) { f.flags = 0x1000, f.extendedTime = fullTime.substr(0, 9); })},
        {"times cut in the groups", fileWith([&](RarFile& f) { f.flags = 0x1000, f.extendedTime = "\xFF"; })},
        {"times missing", fileWith([](RarFile& f) { f.flags = 0x1000; })},
        {"all of them", fileWith([&](RarFile& f) {
             f.flags = 0x1500, f.salt = "saltsalt", f.extendedTime = fullTime;
             f.packedHigh = 0, f.unpackedHigh = 9, f.extra = "unknown";
         })},
        {"all of them, checked alone", fileWith([&](RarFile& f) {
             f.flags = 0x1500, f.salt = "saltsalt", f.extendedTime = fullTime;
             f.packedHigh = 0, f.unpackedHigh = 9, f.extra = "unknown", f.extraInCrc = false;
         })},
        {"encoded name", fileWith([](RarFile& f) { f.flags = 0x0200, f.name = std::string("a\0\1\2\3", 5); })},
        {"nested", fileWith([&](RarFile& f) { f.flags = 0x0002, f.extra = text + "more"; })},
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
    const CollectedEntry& first = entries.entries[0];
    EXPECT_EQ(first.name, "dir\\a");
    EXPECT_EQ(first.algorithm, 4);
    EXPECT_EQ(first.flags, 0x20);
    EXPECT_EQ(first.time, 0x2D6A8C61u);
    EXPECT_EQ(first.compressedSize, 5);
    EXPECT_EQ(first.uncompressedSize, 70000);
    EXPECT_EQ(first.checkSum, 0x12345678u);
    EXPECT_EQ(entries.entries[1].uncompressedSize, -1);
    EXPECT_EQ(entries.entries[2].compressedSize, -1);
    EXPECT_EQ(entries.entries[2].uncompressedSize, -1);
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
    const std::pair<std::string, std::string> cases[] = {
        {"", "a=hello "},
        {B::block(0x7C, 0, ""), "a=hello "},
        {B::block(0x71, 0, ""), "a=hello "},
        {std::string(64, '\0'), "a=hello "},
        {"short", "a=hello "},
        {B::stored("e", "hello", 0x0004), "a=hello " + kBadHead},
        {B::stored("e", "hello", 0x0005), "a=hello " + kBadHead},
        {B::stored("e", "hello", 0x0002), "a=hello " + kBadHead},  // The data is not taken for a nested block.
        {fileWith([](RarFile& f) { f.flags = 0x0002, f.extra = nestedArchives(9); }), "a=hello " + kBadHead},
        {fileWith([](RarFile& f) { f.flags = 0x0400, f.salt = "seven.."; }), "a=hello " + kBadHead},
        {fileWith([](RarFile& f) { f.flags = 0x0100, f.headerSize = 39; }), "a=hello " + kBadHead},
        {fileWith([](RarFile& f) { f.headerSize = 31; }), "a=hello " + kBadHead},
        {fileWith([](RarFile& f) { f.headerSize = 0; }), "a=hello " + kBadHead},
        {fileWith([](RarFile& f) { f.flags = 0x0001, f.headerSize = 31; }), "a=hello " + kBadHead},
        {B::block(0x7A, 0x8000, "", "data", 10), "a=hello " + kBadHead},
        {B::block(0x7B, 0, "", "", 6), "a=hello " + kBadHead},
        {B::block(0x73, 0, "12345"), "a=hello " + kBadHead},
        {B::block(0x72, 0, "", "", 0), "a=hello " + kBadHead},
    };
    for (const auto& [blocks, expected] : cases) {
        SCOPED_TRACE(testing::PrintToString(blocks));
        const std::string bytes = B::marker() + B::archive() + B::stored("a", "hello") + blocks;
        EXPECT_EQ(walk(bytes), expected);
        if (blocks.size() >= 7) {  // Then it counts as a block, and nothing behind it as one more.
            EXPECT_EQ(walk(bytes + B::stored("z", "zz")), expected);
        }
    }
    CapturedLog log;
    walk(around(B::stored("e", "hello", 0x0004)));
    EXPECT_EQ(log.count("RarUnarchiver: nead passwd"), 1u);
    walk(around(B::block(0x7C, 0, "")));
    EXPECT_EQ(log.count("Unknown rar type [7c]"), 1u);
    EXPECT_EQ(log.count("h_type[72], h_flags[1a21], h_size[0007]a_size[00000000]"), 2u);
    EXPECT_EQ(log.count("RarUnarchiver::start"), 2u);
    MemBufferBase empty;
    EntryCollector entries;
    EXPECT_EQ(unitThrownBy([&] { RarUnarchiver(&empty, entries, nullptr, 0).start(); }), kUnit);
}

TEST(RarUnarchiver, doesWithAnEntryWhatTheProcessorSays) {
    struct Case {
        unsigned archiveFlags, flags, method;
        int action;
        bool stream;
        std::string expected;
    };
    constexpr unsigned kSolid = 0x0010, kSolidArchive = 0x0008;
    const std::string aborted = "a= ! Archiving aborted";
    const Case cases[] = {
        {0, 0, 0x30, kActionAbort, true, aborted},
        {0, 0, 0x30, kActionSkip, true, "a= z=zz "},
        {0, 0, 0x30, kActionCopy, true, "a=hello z=zz "},
        {0, 0, 0x30, kActionCopy, false, "a= z= "},
        {0, 0, 0x30, kActionDecompress, false, "a= z= "},
        {0, kSolid, 0x30, kActionSkip, true, "a= z=zz "},
        {0, kSolid, 0x30, kActionCopy, true, "a=hello z=zz "},
        {0, kSolid, 0x30, kActionDecompress, true, "a=hello z=zz "},
        {0, 0, 0x35, kActionAbort, true, aborted},
        {0, 0, 0x35, kActionSkip, true, "a= z=zz "},
        {0, 0, 0x35, 3, true, "a= z=zz "},
        {0, 0, 0x35, kActionCopy, true, "a=hello z=zz "},
        {0, 0, 0x35, kActionDecompress, false, "a= z= "},
        {0, 0, 0x35, kActionDecompress, true, "a= " + kDecoded},
        {0, 0, 0x2F, kActionDecompress, true, "a= " + kDecoded},
        {0, kSolid, 0x35, kActionAbort, true, aborted},
        {0, kSolid, 0x35, kActionSkip, true, "a= " + kDecoded},
        {0, kSolid, 0x35, 3, true, "a= " + kDecoded},
        {0, kSolid, 0x35, kActionCopy, false, "a= " + kDecoded},
        {0, kSolid, 0x35, kActionDecompress, false, "a= " + kDecoded},
        {0, kSolid, 0x35, kActionDecompress, true, "a= " + kDecoded},
        {kSolidArchive, 0, 0x35, kActionSkip, true, "a= " + kDecoded},
        {kSolidArchive, 0, 0x30, kActionSkip, true, "a= z=zz "},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << c.archiveFlags << ' ' << c.flags << ' ' << c.method << " action "
                                        << c.action << " stream " << c.stream);
        EntryCollector entries;
        entries.actionOf["a"] = c.action;
        entries.giveStreams = c.stream;
        const std::string bytes = B::marker() + B::archive(c.archiveFlags) +
                                  fileWith([&](RarFile& f) { f.flags = c.flags, f.method = c.method, f.unpVer = 15; });
        EXPECT_EQ(walk(bytes + B::stored("z", "zz"), entries), c.expected);
        if (!c.stream || entries.entries.size() < 2) continue;
        for (const CollectedEntry& entry : entries.entries) EXPECT_EQ(entry.flushed + entry.closed, 2);
    }
}

TEST(RarUnarchiver, offersEntriesWithBrokenHeadersUnlessSolid) {
    const auto walkBroken = [](unsigned flags, unsigned method) {
        return walk(
            around(fileWith([&](RarFile& f) { f.broken = true, f.flags = flags, f.method = method, f.unpVer = 15; })));
    };
    CapturedLog log;
    EXPECT_EQ(walkBroken(0, 0x30), "a=hello z=zz ");
    EXPECT_EQ(log.count("Rar Broken File Header!"), 1u);
    EXPECT_EQ(walkBroken(0, 0x33), "a= " + kDecoded);
    EXPECT_EQ(walkBroken(0x0010, 0x30), "z=zz ");
    EXPECT_EQ(walkBroken(0x0010, 0x33), kDecoded);
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
    struct Counter : DecompressProcessor {
        int init() override { return ++inits; }
        int setFileName(std::string&) override { return 0; }
        int setContentType(std::string&) override { return 0; }
        int check(InputStream*) override { return 0; }
        int check(BufferBase*) override { return 0; }
        int requiredLength() override { return 0; }
        int getAction() override { return 0; }
        int inits = 0;
    } counter;
    EntryCollector entries;
    walk(around(B::stored("a", "hello") + B::stored("s", "split", 0x0001)), entries, 0, &counter);
    EXPECT_EQ(counter.inits, 2);
    EXPECT_EQ(entries.begun, 2);
    EXPECT_EQ(entries.ended + entries.released, 0);
}

// One of everything, in few bytes.
std::string sampler() {
    const std::string full = fileWith([](RarFile& f) {
        f.name = "b", f.flags = 0x1502, f.salt = "saltsalt", f.extendedTime = "\x08\xB0xxxxyyy";
        f.extra = B::block(0x75, 0, "c");
    });
    return B::marker() + B::archive(0x0002, B::block(0x75, 0, "text")) + B::stored("a", "hello") + full +
           B::stored("s", "split", 0x0001) + B::block(0x7A, 0x8000, "new", "sub") + B::stored("c", "last") + B::end();
}

TEST(RarUnarchiver, entriesBeforeATruncationAreWhole) {
    const std::string bytes = sampler();
    EntryCollector all;
    ASSERT_EQ(walk(bytes, all), "a=hello b=hello c=last ");
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        SCOPED_TRACE(size);
        EntryCollector entries;
        walk(bytes.substr(0, size), entries);
        ASSERT_LE(entries.entries.size(), 3u);
        for (std::size_t i = 0; i < entries.entries.size(); ++i) {
            const CollectedEntry& cut = entries.entries[i];
            EXPECT_EQ(cut.name, all.entries[i].name);
            if (i + 1 < entries.entries.size()) {
                EXPECT_EQ(cut.bytes, all.entries[i].bytes);
            }
            EXPECT_TRUE(all.entries[i].bytes.starts_with(cut.bytes));
        }
    }
}

TEST(RarUnarchiver, anyChangedBitLeavesTheWalkBounded) {
    const std::string bytes = sampler();
    int unlike = 0;
    for (std::size_t bit = 0; bit < bytes.size() * 8; ++bit) {
        SCOPED_TRACE(bit);
        EntryCollector entries;
        const std::string result = walk(changed(bytes, bit / 8, static_cast<unsigned char>(1u << bit % 8)), entries);
        EXPECT_LE(result.size(), 4 * bytes.size());
        EXPECT_LE(entries.entries.size(), bytes.size() / 32);
        // No other exceptions; an IOException when an entry now counts as compressed.
        EXPECT_TRUE(result.find('<') == std::string::npos || result.find("IOException") != std::string::npos) << result;
        if (result != "a=hello b=hello c=last ") ++unlike;
    }
    EXPECT_GT(unlike, 0);
}

}  // namespace
}  // namespace ZOV_SPACE
