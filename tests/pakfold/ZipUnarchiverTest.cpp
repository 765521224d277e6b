#include <gtest/gtest.h>

#include <initializer_list>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/CapturedLog.h"
#include "support/EntryCollector.h"
#include "support/GoldenRows.h"
#include "support/StopAfter.h"
#include "support/StringBuffer.h"
#include "support/Thrown.h"
#include "support/ZipBuilder.h"
#include "support/ZipRecipe.h"
#include "unarchiver/ScanBudget.h"
#include "zip/ZipUnarchiver.h"

namespace ZOV_SPACE {
namespace {

using namespace std::string_literals;

enum Source { kBuffer, kStream };

const std::string kPassedOver = "Zip entry passed over: ";
const std::string kAgain = "failed to restart zip unarchiving";

struct Archive {
    Archive(std::initializer_list<ZipMember> members) : bytes(ZipBuilder(members).archive()) {}
    Archive(std::string all) : bytes(std::move(all)) {}

    std::string bytes;
};

// What the walk over the archive throws; empty when it ends well.
std::string walk(const Archive& archive, ArchiveEntryProcessor& entries, Source from = kBuffer,
                 DecompressProcessor* processor = nullptr) {
    StringSource source(archive.bytes);
    ZipUnarchiver overBuffer(&source.buffer, entries, processor, 0x80000000U);
    ZipUnarchiver overStream(&source.stream, entries, processor, 0);
    try {
        (from == kBuffer ? overBuffer : overStream).start();
    } catch (Exception& failure) {
        return failure.getMessage();
    }
    return "";
}

// Holds everything that could be taken for a record.
const std::string kDeceptive = "PK\7\10" + std::string(12, '\1') + "PK\3\4" + std::string(40, '\0') + "PK\1\2 PK\5\6" +
                               littleEndian(0x5150, 4) + littleEndian(78, 4) + littleEndian(78, 4) + "PK\1\2 end";

constexpr int kNoStream = -1;

// An archive of entries of one kind, walked with one action, null streams or streams with some room.
void expectAllMoved(Source source, int method, int descriptor, int action, int room) {
    SCOPED_TRACE(testing::Message() << source << " " << method << " " << descriptor << " " << action << " " << room);
    ZipBuilder zip;
    std::vector<ZipMember> members;
    for (const std::string& content : {std::string(60'000, 'b') + "PK\7\10PK\3\4", "some content"s, ""s, kDeceptive}) {
        const std::string extra = members.empty() ? "\1\0\0\0"s : "";  // ZIP64: does not tell a descriptor's form.
        members.push_back({"name" + std::to_string(content.size()), content, method, descriptor, 0, extra});
        zip.add(members.back());
    }
    EntryCollector entries(action);
    const bool streams = room != kNoStream;
    entries.giveStreams = streams;
    entries.room = static_cast<std::size_t>(room);
    EXPECT_EQ(walk(zip.archive(), entries, source), "");
    ASSERT_EQ(entries.entries.size(), members.size() + 1);
    const bool sizesBefore = source == kBuffer || descriptor == kNoDescriptor;
    const bool taken = streams && (action == kActionCopy || action == kActionDecompress);
    std::string sizedLike;  // Sizes that come behind the data are those of the entry before.
    for (std::size_t i = 0; i < members.size(); ++i) {
        const CollectedEntry& entry = entries.entries[i];
        const std::string packed = members[i].packedData();
        if (sizesBefore) sizedLike = members[i].content;
        EXPECT_EQ(entry.name, members[i].name);
        EXPECT_EQ(entry.bytes,
                  !taken ? "" : (action == kActionCopy ? packed : members[i].content).substr(0, entries.room));
        EXPECT_EQ(entry.algorithm, method == 8 ? kAlgorithmDeflate : kAlgorithmStored);
        EXPECT_EQ(entry.time, ZipBuilder::kTime);
        EXPECT_EQ(entry.checkSum, crc32Of(sizedLike));
        EXPECT_EQ(entry.uncompressedSize, static_cast<int>(sizedLike.size()));
        EXPECT_TRUE(!sizesBefore || entry.compressedSize == static_cast<int>(packed.size()));
        EXPECT_TRUE(entry.flushed == streams && entry.closed == streams && entry.complete == streams);
        sizedLike = members[i].content;
    }
    const CollectedEntry& last = entries.entries.back();
    EXPECT_TRUE(last.name.empty() && last.algorithm == 0 && last.compressedSize == 0 && last.uncompressedSize == 0 &&
                last.checkSum == 0 && last.time == 0);
    EXPECT_TRUE(entries.begun == 1 && entries.ended == 1 && entries.released == 1);
}

TEST(ZipUnarchiver, carriesOutEveryActionOnEveryKindOfEntry) {
    for (const int descriptor : {0, kPlainDescriptor, kSignedDescriptor, kLargeDescriptor, kLargeSignedDescriptor}) {
        for (const int action : {kActionSkip, kActionCopy, kActionDecompress, 7}) {
            for (const int room : {1'000'000, 10, kNoStream}) {
                for (const int method : {0, 8}) {
                    expectAllMoved(kBuffer, method, descriptor, action, room);
                    // On a stream, only decoding tells where data ends that says it behind itself.
                    const bool endKnown = descriptor == kNoDescriptor || (method == 8 && action != kActionCopy);
                    if (endKnown) expectAllMoved(kStream, method, descriptor, action, room);
                }
            }
        }
    }
}

std::string archiveOf(const std::string& recipe) { return zipOfRecipe(VOLE_ZIP_ROWS, recipe); }

TEST(ZipUnarchiver, readsWhatIsSoundOfArchivesThatAreNot) {
    for (const GoldenRow& row : goldenRows(VOLE_ZIP_ROWS, "walk")) {
        SCOPED_TRACE(row[4]);
        const bool fails = !row[3].empty();
        CapturedLog log(CapturedLog::kErrors);
        EntryCollector entries;
        EXPECT_EQ(walk(archiveOf(row[0]), entries), row[3]);
        EXPECT_EQ(entries.contents(), row[1] + (fails ? "" : "= "));
        EXPECT_TRUE(entries.ended == !fails && entries.released == !fails);
        std::string lines;
        for (const std::string& line : log.lines()) {
            lines += line.substr(line.starts_with(kPassedOver) ? kPassedOver.size() : 0) + ";";
        }
        EXPECT_EQ(lines, row[2]);
    }
    EntryCollector entries;  // What could be read of a damaged entry are the sizes that it is offered with.
    walk(archiveOf("tornBefore long directory"), entries);
    EXPECT_EQ(entries.entries[0].uncompressedSize, 3);
    EXPECT_LE(entries.entries[0].compressedSize, 8);
}

TEST(ZipUnarchiver, tellsWhatIsNotSeenAndGoesOnWhereAsked) {
    for (const GoldenRow& row : goldenRows(VOLE_ZIP_ROWS, "trouble")) {
        SCOPED_TRACE(row[4]);
        EntryCollector plain, persisting;
        persisting.goesOn = true;
        walk(archiveOf(row[0]), plain);
        EXPECT_EQ(plain.troubles, row[1]);
        EXPECT_EQ(walk(archiveOf(row[0]), persisting), "");
        EXPECT_EQ(persisting.troubles, row[3]);
        EXPECT_EQ(persisting.completed(), row[2]);
        EXPECT_TRUE(persisting.ended == 1 && persisting.released == 1);
    }
}

TEST(ZipUnarchiver, endsForGoodWhereAskedToOrWhereTheSourceEnds) {
    const Archive two{{"a", "A"}, {"b", "B"}};
    for (const Source source : {kBuffer, kStream}) {
        EntryCollector aborting, cut;
        aborting.actionOf = {{"b", kActionAbort}};
        EXPECT_NE(walk(two, aborting, source).find("Archiving aborted"), std::string::npos);
        EXPECT_EQ(aborting.contents() + std::to_string(aborting.ended), "a=A b= 0");
        EXPECT_EQ(walk(two.bytes.substr(0, 30), cut, source), "unexpected EOF");
    }
    EntryCollector entries;
    EXPECT_EQ(walk({{"s", "secret", 8, 0, 1}, {"b", "B"}}, entries, kStream), kAgain);
}

TEST(ZipUnarchiver, goesOnBehindAnEntryThatTheProcessorStops) {
    const Archive archive{{"a", std::string(200'000, 'a'), 8, kSignedDescriptor}, {"b", "B"}};
    for (const Source source : {kBuffer, kStream}) {
        StopAfter once(1);
        EntryCollector entries;
        EXPECT_EQ(walk(archive, entries, source, &once), "");
        EXPECT_EQ(entries.contents(), "a=" + std::string(51'200, 'a') + " b= = ");
    }
}

TEST(ZipUnarchiver, namesTheAlgorithmsThatAProcessorAsksForInVain) {
    struct : EntryCollector {
        std::unique_ptr<OutputStream> processEntry(ArchiveEntryInfo* entry, int& answer) override {
            entry->algorithm = entry->name == "s" ? kAlgorithmShrink : kAlgorithmImplode;
            return EntryCollector::processEntry(entry, answer);
        }
    } entries;
    CapturedLog log(CapturedLog::kErrors);
    EXPECT_EQ(walk({{"s", "S"}, {"i", "I"}}, entries), kAgain);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{kPassedOver + "SHRINK algorithm unimplemented",
                                                     kPassedOver + "IMPLODE algorithm unimplemented"}));
}

const std::string kOutOfBudget = "Out of budget";

TEST(ZipUnarchiver, chargesWhatItReadsForNothing) {
    constexpr int kRefuse = 5;
    struct Refusing : EntryCollector {
        using EntryCollector::EntryCollector;
        std::unique_ptr<OutputStream> processEntry(ArchiveEntryInfo* entry, int& answer) override {
            auto out = EntryCollector::processEntry(entry, answer);
            if (answer == kRefuse) raise<UnarchivePolicyException>("refused");
            return out;
        }
    };
    for (const GoldenRow& row : goldenRows(VOLE_ZIP_ROWS, "charge")) {
        SCOPED_TRACE(row[4]);
        const std::vector<std::uint32_t> given = numbersIn(row[1]), expected = numbersIn(row[2]);
        ScanBudget budget;
        const ScanBudget::Scope spending(budget);
        ScanBudget::chargeDiscardedBytes(ScanBudget::kDiscardedBytes - given[2]);
        Refusing entries(static_cast<int>(given[1]));
        EXPECT_EQ(walk(archiveOf(row[0]), entries, given[0] ? kStream : kBuffer), row[3]);
        EXPECT_EQ(entries.entries.size(), expected[1]);
        EXPECT_EQ(given[2] - ScanBudget::discardedBytesLeft(), expected[0]);
    }
}

TEST(ZipUnarchiver, chargesWhatIsTaken) {
    for (const ZipMember& member : {ZipMember{"s", "taken", 0}, {"d", "taken"}, {"l", "taken", 8, kSignedDescriptor}}) {
        for (const int left : {4, 5}) {
            ScanBudget budget;
            const ScanBudget::Scope spending(budget);
            ScanBudget::chargeTakenBytes(ScanBudget::kTakenBytes - left);
            EntryCollector entries;
            EXPECT_EQ(walk({member}, entries), left == 4 ? kOutOfBudget : "");
        }
    }
}

TEST(ZipUnarchiver, acceptsLocalHeadersAndSplitMarkersAheadOfThem) {
    const std::pair<std::string, bool> rows[] = {{"PK\3\4", true},    {"PK00PK\3\4", true},    {"PK\7\10PK\3\4", true},
                                                 {"", false},         {"PK\3", false},         {"PK00PK\3", false},
                                                 {"PK00PK00", false}, {"PK\5\6PK\3\4", false}, {"PK\1\2PK\3\4", false}};
    for (const auto& [start, isZip] : rows) {
        StringSource source("?" + start, 1);
        EXPECT_EQ(ZipUnarchiver::checkFormat(source.stream), isZip) << start;
        EXPECT_EQ(source.stream.available(), static_cast<int>(start.size()));
    }
    struct Failing : BufferBaseInputStream {
        using BufferBaseInputStream::BufferBaseInputStream;
        int read(char* buf, int) override {
            const int count = BufferBaseInputStream::read(buf, 2);
            if (count < 1) raise<IOException>("no more");
            return count;
        }
    };
    StringBuffer four("PK\3\4");
    Failing failing(&four);
    EXPECT_EQ(thrownBy([&] { ZipUnarchiver::checkFormat(failing); }), "no more");
    EXPECT_EQ(failing.available(), 4);
}

TEST(ZipInfo, readsTheCentralDirectoryAndTheEndRecord) {
    const ZipBuilder zip({{"one", "1"}, {std::string(600, 'n'), "2"}, {"three", "3"}});
    const std::string directory = zip.archive().substr(zip.entries().size());
    const struct {
        int count;
        std::size_t length, found;
        bool end;
    } cases[] = {{-1, directory.size(), 3, true},
                 {3, directory.size(), 3, true},
                 {2, directory.size(), 2, false},
                 {0, directory.size(), 0, false},
                 {-1, 700, 2, false},
                 {-1, directory.size() - 1, 3, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.count << " in " << c.length << " bytes");
        StringSource source(directory.substr(0, c.length));
        ZipInfo info;
        info.readCentralDirs(source.stream, c.count);
        ASSERT_EQ(info.centralDirs.size(), c.found);
        EXPECT_EQ(info.end.read(source.stream), c.end);
        EXPECT_EQ(info.end.entryCount, c.end ? 3 : 0);
        if (c.found < 2) continue;
        EXPECT_EQ(info.centralDirs[1]->name, std::string(512, 'n'));
        EXPECT_EQ(info.centralDirs[1]->checkSum, crc32Of("2"));
        EXPECT_EQ(info.centralDirs[1]->headerOffset, 30 + 3 + deflated("1").size());
    }
}

TEST(ZipEndCentralDir, isSearchedForInTheLast64KiBlocks) {
    const std::string mark = "PK\5\6";
    const struct {
        std::size_t before, after;
        long position;
    } rows[] = {{0, 0, 0},          {1, 0, 1},    {5, 18, 5},    {3000, 1021, 3000}, {3000, 1022, 3000},
                {3000, 1026, 3000}, {7, 2045, 7}, {9, 65531, 9}, {9, 65532, 0}};
    for (const auto& row : rows) {
        StringBuffer buffer(std::string(row.before, '.') + mark + std::string(row.after, '.'));
        EXPECT_EQ(ZipEndCentralDir::findPos(buffer), row.position) << row.before << " + " << row.after;
    }
    StringBuffer empty(""), two(mark + std::string(100, '.') + mark + std::string(18, '.'));
    EXPECT_EQ(ZipEndCentralDir::findPos(empty), 0);
    EXPECT_EQ(ZipEndCentralDir::findPos(two), 104);
}

}  // namespace
}  // namespace ZOV_SPACE
