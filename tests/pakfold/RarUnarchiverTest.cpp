#include "rar/RarUnarchiver.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "rar/RarBlock.h"
#include "support/CapturedLog.h"
#include "support/EntryCollector.h"
#include "support/GoldenRows.h"
#include "support/RarBuilder.h"
#include "support/RarEncoder.h"
#include "support/RarRecipe.h"
#include "support/StopAfter.h"
#include "support/StringBuffer.h"
#include "support/Thrown.h"
#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {
namespace {

using B = RarBuilder;

const std::string kNotRar = "! Not a rar package";
const std::string kBadArchive = "! Rar archive info error";

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

TEST(RarUnarchiver, findsItsMarkerAndItsArchiveHeader) {
    const std::string entry = B::stored("a", "hello"), good = B::marker() + B::archive() + entry;
    for (std::size_t i = 0; i < 7; ++i) EXPECT_EQ(walk(changed(good, i, 0x80)), kNotRar) << i;
    for (std::size_t i = 7; i < 20; ++i) EXPECT_EQ(walk(changed(good, i, 0x01)), kBadArchive) << i;

    for (const GoldenRow& row : goldenRows(VOLE_RAR_ROWS, "header")) {
        EXPECT_EQ(walk(B::marker() + blockOf(row[0]) + entry), row[1]) << row[2];
    }
    EXPECT_EQ(walk(B::marker() + entry), kBadArchive);
    EXPECT_EQ(walk(""), kNotRar);
    EXPECT_EQ(walk(B::marker()), kBadArchive);
}

TEST(RarUnarchiver, offsetsNameTheByteBehindTheMarker) {
    const std::string good = B::marker() + B::archive() + B::stored("a", "hello");
    for (const GoldenRow& row : goldenRows(VOLE_RAR_ROWS, "offset")) {
        const std::vector<std::uint32_t> given = numbersIn(row[0]);
        EXPECT_EQ(walk(std::string(given[0], 'x') + good, given[1]), row[1]) << row[2];
    }
}

TEST(RarUnarchiver, readsHeadersToTheEndThatTheyAnnounce) {
    for (const GoldenRow& row : goldenRows(VOLE_RAR_ROWS, "block")) {
        SCOPED_TRACE(row[2]);
        CapturedLog log;
        EXPECT_EQ(walk(around(blockOf(row[0]))), row[1]);
        EXPECT_EQ(log.count("Rar Broken File Header!"), 0u);
    }
}

TEST(RarUnarchiver, describesEntries) {
    EntryCollector entries(kActionSkip);
    entries.giveStreams = false;
    walk(around(blockOf("name=dir\\a unpacked=11170") + blockOf("flags=100 unpackedHigh=1") +
                blockOf("flags=100 packedHigh=ffffffff unpackedHigh=ffffffff")),
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
    EXPECT_EQ(walk(around(B::stored("a", ""))), "a= z=zz ");
    EXPECT_EQ(walk(around(blockOf("packed=7fffffff"))), "a=hello" + B::stored("z", "zz") + B::end() + " ");
}

TEST(RarUnarchiver, endsAtWhatItCannotRead) {
    for (const GoldenRow& row : goldenRows(VOLE_RAR_ROWS, "end")) {
        SCOPED_TRACE(row[2]);
        const std::string bytes = B::marker() + B::archive() + B::stored("a", "hello") + blockOf(row[0]);
        EXPECT_EQ(walk(bytes), "a=hello " + row[1]);
        // Then it counts as a block, and nothing behind it as one more.
        EXPECT_EQ(walk(bytes + B::stored("z", "zz")), "a=hello " + row[1]);
    }
    const std::string zeros(64, '\0');
    for (const std::string& rest : {std::string(), std::string("short"), zeros, zeros + B::stored("z", "zz")}) {
        EXPECT_EQ(walk(B::marker() + B::archive() + B::stored("a", "hello") + rest), "a=hello ");
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
    for (const GoldenRow& row : goldenRows(VOLE_RAR_ROWS, "action")) {
        SCOPED_TRACE(row[3]);
        CapturedLog log;
        const std::vector<std::uint32_t> given = numbersIn(row[0]);
        EntryCollector entries;
        entries.actionOf["a"] = static_cast<int>(given[1]);
        entries.giveStreams = given[2] != 0;
        EXPECT_EQ(walk(B::marker() + B::archive(given[0]) + blockOf(row[1]) + B::stored("z", "zz"), entries), row[2]);
        EXPECT_EQ(log.count("Rar Broken File Header!"), row[1].ends_with("broken") ? 1u : 0u);
        if (!entries.giveStreams || entries.entries.size() < 2) continue;
        for (const CollectedEntry& each : entries.entries) EXPECT_EQ(each.flushed + each.closed + each.complete, 3);
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
        {blockOf("unpacked=9"), incomplete},
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

TEST(RarUnarchiver, tellsWhatIsNotSeenAndGoesOnWhereAsked) {
    for (const GoldenRow& row : goldenRows(VOLE_RAR_ROWS, "trouble")) {
        SCOPED_TRACE(row[5]);
        std::string bytes = B::marker() + B::archive(numbersIn(row[0])[0]);
        std::istringstream blocks(row[1]);
        for (std::string block; std::getline(blocks, block, ';');) {
            bytes += block.starts_with("raw=") ? block.substr(4) : blockOf(block);
        }
        EntryCollector plain, persisting;
        persisting.goesOn = true;
        walk(bytes, plain);
        EXPECT_EQ(plain.troubles, row[2]);
        walk(bytes, persisting);
        EXPECT_EQ(persisting.troubles, row[4]);
        EXPECT_EQ(persisting.completed(), row[3]);
    }
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
