#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "support/CapturedLog.h"
#include "support/EntryCollector.h"
#include "support/StopAfter.h"
#include "support/StringBuffer.h"
#include "support/Thrown.h"
#include "support/ZipBuilder.h"
#include "unarchiver/ScanBudget.h"
#include "zip/ZipUnarchiver.h"

namespace ZOV_SPACE {
namespace {

using namespace std::string_literals;

enum Source { kBuffer, kStream };

// Deflated data that says "abc" and then what cannot be.
const std::string kTornData = "\x4b\x4c\x4a\x06\xff\xff\xff\xff";

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
        EXPECT_TRUE(entry.flushed == streams && entry.closed == streams);
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

TEST(ZipUnarchiver, readsWhatIsSoundOfArchivesThatAreNot) {
    using Zip = ZipBuilder;
    const auto saying = [](const std::string& name, std::uint32_t packed, std::uint32_t unpacked = 4,
                           const std::string& extra = "", int method = 0) {
        return ZipMember{name, "data", method, kNoDescriptor, 0, extra, {}, packed, unpacked};
    };
    const ZipMember good{"good", "good"}, secret{"secret", "secret", 8, 0, 1}, shrunk{"s", "shrunk", 1},
        torn{"t", "abc", 8, 0, 0, "", kTornData}, tornBefore{"t", "abc", 8, kSignedDescriptor, 0, "", kTornData},
        tail{"l", "abc", 8, 0, 0, "", deflated("abc") + "rest"},
        liar{"d", "data", 8, kPlainDescriptor, 0, "", {}, 7U, 9U, 1U};
    const std::string x512(512, 'x'), encrypted = "encrypted ZIP entry;", shrink = "Unknown algorithm: 1 in zip;",
                                      unknown = "Unknown algorithm: 99 in zip;",
                                      damage = "inflate: error -3: invalid distance code;",
                                      goodEntry = Zip({good}).entries();
    const auto zip64 = [](std::initializer_list<std::uint64_t> sizes) {
        std::string field = "\1\0"s + littleEndian(8 * sizes.size(), 2);
        for (const std::uint64_t size : sizes) field += littleEndian(size, 8);
        return field;
    };
    const std::string tooShort = zip64({4}) + littleEndian(4, 8);  // What follows it would do as the other size.
    constexpr std::uint32_t k4GiB = 0xFFFFFFFFU;
    constexpr std::uint64_t k2GiB = 0x80000000U;
    const auto missed = [](int counted) {
        return "Zip directory counts " + std::to_string(counted) + " entries, of which 1 were not met;";
    };
    const auto lost = [&](const std::string& behind, int counted = 0) {
        return "Zip walk ended behind <" + behind + ">: neither an entry nor the directory follows;" +
               (counted == 0 ? "" : missed(counted));
    };
    const std::string one = Zip({good}).archive(), two = Zip({good, good}).archive();
    const std::string half = two.substr(0, goodEntry.size()), directory = two.substr(2 * goodEntry.size());
    const struct {
        const char* what;
        Archive archive;
        std::string contents;    // But for the empty record behind the entries.
        std::string lines = {};  // For the host; of an entry that is passed over, why.
        bool fails = false;
    } cases[] = {
        {"nothing", ""s, "", lost("")},
        {"no archive", "PK\3\5" + one, "", lost("", 1)},
        {"no entries", Zip().archive(), ""},
        {"no directory", goodEntry, "good=good ", lost("good")},
        {"junk between entries", half + "junk" + two.substr(half.size()), "good=good ", lost("good", 2)},
        {"an entry fewer than the directory has", half + directory, "good=good ", missed(2)},
        {"the same without end record", half + directory.substr(0, directory.find("PK\5\6")), "good=good ", missed(2)},
        {"more than 65,534 announced", goodEntry + "PK\5\6" + std::string(18, '\xFF'), "good=good "},
        {"split marker", "PK00" + one, "good=good "},
        {"other split marker", "PK\7\10" + one, "good=good "},
        {"two markers", "PK00PK00" + one, "", lost("", 1)},
        {"directory", {{"d/", "", 0}, good}, "d/= good=good "},
        {"name of 512 bytes", {{x512, "long"}}, x512 + "=long "},
        {"name of 513 bytes", {{x512 + "x", "long"}, good}, "good=good ", "bad entry name;"},
        {"NUL in a name", {{"a\0b"s, "x"}}, "a\0b=x "s},
        {"encrypted first", {secret, good}, "good=good ", encrypted},
        {"encrypted later", {good, secret, good}, "good=good good=good ", encrypted},
        {"encrypted only", {secret}, "", encrypted, true},
        {"encrypted twice", {secret, good, secret, good}, "good=good ", encrypted + encrypted, true},
        {"shrunk", {shrunk, good}, "s= good=good ", shrink},
        {"shrunk, then encrypted", {shrunk, secret, good}, "s= ", shrink + encrypted, true},
        {"unknown method, descriptor", {{"u", "?", 99, kPlainDescriptor}, good}, "u= good=good ", unknown},
        {"empty content", {{"u", "", 99, kPlainDescriptor, 0, "", "??"}, good}, "u= good=good ", unknown},
        {"damaged", {torn, good}, "t=abc good=good ", damage},
        {"damaged, descriptor", {tornBefore, good}, "t=abc good=good ", damage},
        {"deflated, cut by its size", {saying("l", 2, 4, "", 8), good}, "l=d good=good ", "inflate: error -5: ;"},
        {"deflated, more behind it", {tail, good}, "l=abc good=good "},
        {"stored, no descriptor", Zip({{"n", "to the end", 0, 0, 8}, good}).entries(),
         "n=to the end" + goodEntry + " good=good ", "missing data descriptor;" + lost("good")},
        {"deflated, no descriptor", {{"d", "data", 8, 0, 8}, good}, "d=data good=good "},
        {"descriptor cut", Zip({{"d", "data", 8, kSignedDescriptor}}).entries().substr(0, 41), "d=data ", lost("d")},
        {"lying descriptor", {liar, good}, "d=data good=good "},
        {"size 0", {saying("z", 0), good}, "z= ", lost("z", 2)},
        {"negative size", {saying("n", 0x80000000U), good}, "n= ", lost("n", 2)},
        {"4 GiB", {saying("n", k4GiB), good}, "n= ", lost("n", 2)},
        {"2 GiB less 1", Zip({saying("n", 0x7FFFFFFFU), good}).entries(), "n=data" + goodEntry + " ", lost("n")},
        {"ZIP64", {saying("q", k4GiB, k4GiB, zip64({9, 4})), good}, "q=data good=good "},
        {"ZIP64, only the packed size", {saying("q", k4GiB, 4, zip64({4})), good}, "q=data good=good "},
        {"ZIP64, only the unpacked size", {saying("q", 4, k4GiB, zip64({9})), good}, "q=data good=good "},
        {"ZIP64, unpacked too large", {saying("q", k4GiB, k4GiB, zip64({k2GiB, 4})), good}, "q=data good=good "},
        {"ZIP64, packed too large", {saying("q", k4GiB, k4GiB, zip64({4, k2GiB})), good}, "q= ", lost("q", 2)},
        {"ZIP64, one is missing", {saying("q", k4GiB, k4GiB, tooShort), good}, "q= ", lost("q", 2)},
        {"no name", {{"", "x"}}, "=x ", "empty file name in central directory;", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        CapturedLog log(CapturedLog::kErrors);
        EntryCollector entries;
        EXPECT_EQ(walk(c.archive, entries), c.fails ? kAgain : "");
        EXPECT_EQ(entries.contents(), c.contents + (c.fails ? "" : "= "));
        EXPECT_TRUE(entries.ended == !c.fails && entries.released == !c.fails);
        std::string lines;
        for (const std::string& line : log.lines()) {
            lines += line.substr(line.starts_with(kPassedOver) ? kPassedOver.size() : 0) + ";";
        }
        EXPECT_EQ(lines, c.lines);
    }
    EntryCollector entries;  // What could be read of a damaged entry are the sizes that it is offered with.
    walk({tornBefore, {"good", std::string(5000, 'g'), 0}}, entries);
    EXPECT_EQ(entries.entries[0].uncompressedSize, 3);
    EXPECT_LE(entries.entries[0].compressedSize, 8);
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
    const std::string content(100'000, 'x');
    const Archive mixed{{"a", content, 8, kSignedDescriptor}, {"b", "B", 8, 0, 1}, {"c", "C"}};
    ZipBuilder stored;
    for (int i = 0; i < 1000; ++i) stored.add({"s", "data", 0, kPlainDescriptor});
    const Archive torn{{"t", "", 8, kSignedDescriptor, 0, {}, kTornData}, {"c", "C"}};
    const auto large = [](std::size_t size) { return Archive{{"l", std::string(size, 'l'), 8, kSignedDescriptor}}; };
    constexpr std::int64_t kMiB = 1 << 20;
    const std::string endless = ZipBuilder({{"n", std::string(2 * kMiB, 'n'), 0, 0, 8}}).entries();
    constexpr int kRefuse = 5;
    struct Refusing : EntryCollector {
        using EntryCollector::EntryCollector;
        std::unique_ptr<OutputStream> processEntry(ArchiveEntryInfo* entry, int& answer) override {
            auto out = EntryCollector::processEntry(entry, answer);
            if (answer == kRefuse) raise<UnarchivePolicyException>("refused");
            return out;
        }
    };
    const struct {
        const char* what;
        Archive archive;
        Source source;
        int action;
        std::int64_t left, spent;
        std::size_t offered;
        std::string thrown = {};
    } cases[] = {
        {"inflated and skipped", mixed, kBuffer, kActionSkip, 100'000, 100'000, 3},
        {"too much of it", mixed, kBuffer, kActionSkip, 99'999, 99'999, 1, kOutOfBudget},
        {"inflated, copied as it was", mixed, kBuffer, kActionCopy, 100'000, 100'000, 3},
        {"inflated and taken", mixed, kBuffer, kActionDecompress, 0, 0, 3},
        {"inflated and refused", mixed, kBuffer, kRefuse, 100'001, 100'000, 1, "refused"},
        {"damaged", torn, kBuffer, kActionSkip, 3, 3, 3},
        {"damaged, too much", torn, kBuffer, kActionSkip, 2, 2, 1, kOutOfBudget},
        {"as far as is always possible", large(kMiB), kBuffer, kActionDecompress, 0, 0, 2},
        {"one byte more", large(kMiB + 1), kBuffer, kActionDecompress, 0, 0, 0, kOutOfBudget},
        {"more than is kept", large(9 * kMiB), kBuffer, kActionDecompress, 9 * kMiB, 0, 2},
        {"one byte too many", large(9 * kMiB), kBuffer, kActionDecompress, 9 * kMiB - 1, 9 * kMiB - 1, 0, kOutOfBudget},
        {"stream", mixed, kStream, kActionSkip, 100'000, 100'000, 1, kAgain},
        {"stream, too much", mixed, kStream, kActionSkip, 99'999, 99'999, 1, kOutOfBudget},
        {"stored, ends found", stored.archive(), kBuffer, kActionSkip, 0, 0, 1001},
        {"stored, no end", endless, kBuffer, kActionCopy, 2 * kMiB, 2 * kMiB, 1, kAgain},
        {"too much of it", endless, kBuffer, kActionCopy, 2 * kMiB - 1, 2 * kMiB - 1, 0, kOutOfBudget},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ScanBudget budget;
        const ScanBudget::Scope spending(budget);
        ScanBudget::chargeDiscardedBytes(ScanBudget::kDiscardedBytes - c.left);
        Refusing entries(c.action);
        EXPECT_EQ(walk(c.archive, entries, c.source), c.thrown);
        EXPECT_EQ(entries.entries.size(), c.offered);
        EXPECT_EQ(c.left - ScanBudget::discardedBytesLeft(), c.spent);
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
