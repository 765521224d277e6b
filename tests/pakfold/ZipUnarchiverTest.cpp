#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "io/BufferBaseStreams.h"
#include "io/MemBufferBase.h"
#include "support/CapturedLog.h"
#include "support/EntryCollector.h"
#include "support/Thrown.h"
#include "support/ZipBuilder.h"
#include "unarchiver/ScanBudget.h"
#include "unarchiver/Zip.h"

namespace ZOV_SPACE {
namespace {

using namespace std::string_literals;

enum Source { kBuffer, kStream };

// What the walk over the archive throws; empty when it ends well.
template <class E = ArchivingException>
std::string walk(const std::string& archive, ArchiveEntryProcessor& entries, Source source = kBuffer) {
    MemBufferBase buffer;
    buffer.append(archive.data(), static_cast<int>(archive.size()));
    BufferBaseInputStream stream(&buffer);
    const std::string thrown = thrownBy<E>([&] {
        if (source == kBuffer) {
            ZipUnarchiver(&buffer, entries, nullptr, 0).start();
        } else {
            ZipUnarchiver(&stream, entries, nullptr, 0).start();
        }
    });
    return thrown == "<nothing>" ? "" : thrown;
}

// Holds everything that could be taken for a record.
const std::string kDeceptive = "PK\7\10" + std::string(12, '\1') + "PK\3\4" + std::string(40, '\0') + "PK\1\2 PK\5\6" +
                               littleEndian(0x5150, 4) + littleEndian(78, 4) + littleEndian(78, 4) + "PK\1\2 end";

TEST(ZipUnarchiver, carriesOutEveryActionOnEveryKindOfEntry) {
    const std::string kZip64Extra = "\1\0\0\0"s;
    for (const Source source : {kBuffer, kStream}) {
        for (const int method : {0, 8}) {
            for (const int descriptor :
                 {kNoDescriptor, kPlainDescriptor, kSignedDescriptor, kLargeDescriptor, kLargeSignedDescriptor}) {
                // The end of stored data can be found in a buffer only, and so can that of data to be copied.
                if (source == kStream && method == 0 && descriptor != kNoDescriptor) continue;
                for (const int action : {kActionSkip, kActionCopy, kActionDecompress, 7}) {
                    for (const bool giveStreams : {true, false}) {
                        const bool later = source == kStream && descriptor != kNoDescriptor;
                        if (later && action == kActionCopy && giveStreams) continue;
                        SCOPED_TRACE(testing::Message() << source << method << descriptor << action << giveStreams);
                        const std::string extra = descriptor >= kLargeDescriptor ? kZip64Extra : "";
                        const ZipMember members[] = {
                            {"a", "first content", method, descriptor, 0, extra},
                            {"deceptive", kDeceptive, method, descriptor, 0, extra},
                            {"big", std::string(60'000, 'b') + "PK\7\10PK\3\4", method, descriptor, 0, extra},
                        };
                        ZipBuilder zip;
                        for (const ZipMember& member : members) zip.add(member);
                        EntryCollector entries(action);
                        entries.giveStreams = giveStreams;
                        EXPECT_EQ(walk(zip.archive(), entries, source), "");
                        ASSERT_EQ(entries.entries.size(), 4U);
                        const std::string* before = nullptr;  // Whose sizes still stand where they come later.
                        for (std::size_t i = 0; i < 3; ++i) {
                            const CollectedEntry& entry = entries.entries[i];
                            const std::string packed = members[i].packedData();
                            const bool taken = giveStreams && (action == 1 || action == 2);
                            EXPECT_EQ(entry.name, members[i].name);
                            EXPECT_EQ(entry.bytes, !taken ? "" : action == 1 ? packed : members[i].content);
                            EXPECT_EQ(entry.algorithm, method == 8 ? 1 : 0);
                            EXPECT_EQ(entry.time, ZipBuilder::kTime);
                            const std::string& said = members[i].content;
                            const unsigned checkSum = later ? before ? crc32Of(*before) : 0 : crc32Of(said);
                            EXPECT_EQ(entry.checkSum, checkSum);
                            EXPECT_EQ(entry.uncompressedSize,
                                      static_cast<int>(later ? before ? before->size() : 0 : said.size()));
                            const auto size = static_cast<int>(packed.size());
                            EXPECT_TRUE(later || entry.compressedSize == size);
                            EXPECT_EQ(entry.flushed, giveStreams);
                            EXPECT_EQ(entry.closed, giveStreams);
                            before = &said;
                        }
                        const CollectedEntry& last = entries.entries.back();
                        EXPECT_EQ(last.name + last.bytes, "");
                        EXPECT_TRUE(last.algorithm == 0 && last.compressedSize == 0 && last.uncompressedSize == 0 &&
                                    last.checkSum == 0 && last.time == 0);
                        EXPECT_TRUE(entries.begun == 1 && entries.ended == 1 && entries.released == 1);
                    }
                }
            }
        }
    }
}

TEST(ZipUnarchiver, readsWhatIsSoundOfArchivesThatAreNot) {
    constexpr int kEncrypted = 1;
    const std::string kAgain = "failed to restart zip unarchiving", x512(512, 'x'), none;
    const ZipMember good{"good", "good"}, encrypted{"secret", "secret", 8, 0, kEncrypted}, shrunk{"s", "shrunk", 1},
        longName{x512 + "x", "long"}, noDescriptor{"n", "until the end", 0, 0, 8},
        torn{"torn", "abc", 8, kSignedDescriptor, 0, {}, "\x4b\x4c\x4a\x06\xff\xff\xff\xff"s};
    const auto zipOf = [](const std::vector<ZipMember>& members) {
        ZipBuilder zip;
        for (const ZipMember& member : members) zip.add(member);
        return zip;
    };
    const std::string zip64 = "\x01\x00\x10\x00"s + littleEndian(4, 8) + littleEndian(4, 8);
    const std::string huge = "\x01\x00\x10\x00"s + littleEndian(1ULL << 31, 8) + littleEndian(4, 8);
    const struct {
        const char* what;
        std::string archive;
        std::string contents;
        std::string thrown;
        std::string passedOver;  // The failures that are reported to the host, each with a blank behind it.
    } cases[] = {
        {"nothing", "", "= ", none, none},
        {"no archive", "PK\3\5" + zipOf({good}).archive(), "= ", none, none},
        {"no entries", ZipBuilder().archive(), "= ", none, none},
        {"no directory", zipOf({good}).entries(), "good=good = ", none, none},
        {"split marker", "PK00" + zipOf({good}).archive(), "good=good = ", none, none},
        {"other split marker", "PK\7\10" + zipOf({good}).archive(), "good=good = ", none, none},
        {"two markers", "PK00PK00" + zipOf({good}).archive(), "= ", none, none},
        {"directory", zipOf({{"d/", "", 0}, good}).archive(), "d/= good=good = ", none, none},
        {"name of 512 bytes", zipOf({{x512, "long"}}).archive(), x512 + "=long = ", none, none},
        {"name of 513 bytes", zipOf({longName, good}).archive(), "good=good = ", none, "bad entry name "},
        {"NUL in a name", zipOf({{"a\0b"s, "x"}}).archive(), "a\0b=x = "s, none, none},
        {"encrypted first", zipOf({encrypted, good}).archive(), "good=good = ", none, "encrypted ZIP entry "},
        {"encrypted later", zipOf({good, encrypted, good}).archive(), "good=good good=good = ", none,
         "encrypted ZIP entry "},
        {"encrypted only", zipOf({encrypted}).archive(), "", kAgain, "encrypted ZIP entry "},
        {"encrypted twice", zipOf({encrypted, good, encrypted, good}).archive(), "good=good ", kAgain,
         "encrypted ZIP entry encrypted ZIP entry "},
        {"shrunk", zipOf({shrunk, good}).archive(), "s= good=good = ", none, "Unknown algorithm: 1 in zip "},
        {"shrunk, then encrypted", zipOf({shrunk, encrypted, good}).archive(), "s= ", kAgain,
         "Unknown algorithm: 1 in zip encrypted ZIP entry "},
        {"method 99 with descriptor", zipOf({{"s", "???", 99, kPlainDescriptor}, good}).archive(),
         "s= good=good = ", none, "Unknown algorithm: 99 in zip "},
        {"damaged", zipOf({torn, good}).archive(), "torn=abc good=good = ", none,
         "inflate: error -3: invalid distance code "},
        {"damaged, sizes known", zipOf({{"torn", "abc", 8, 0, 0, {}, torn.data}, good}).archive(),
         "torn=abc good=good = ", none, "inflate: error -3: invalid distance code "},
        {"deflated data longer than said", zipOf({{"l", "abc", 8, 0, 0, {}, {}, 2U}, good}).entries(),
         "l=a good=good = ", none, "inflate: error -5:  "},
        {"deflated data shorter than said",
         zipOf({{"l", "abc", 8, 0, 0, {}, deflated("abc") + "rest"}, good}).archive(), "l=abc good=good = ", none,
         none},
        {"stored, no descriptor follows", zipOf({noDescriptor, good}).entries(),
         "n=until the end" + zipOf({good}).entries() + " good=good = ", none, "missing data descriptor "},
        {"deflated, no descriptor follows", zipOf({{"d", "data", 8, 0, 8}, good}).archive(),
         "d=data good=good = ", none, none},
        {"descriptor cut", zipOf({{"d", "data", 8, kSignedDescriptor}}).entries().substr(0, 41), "d=data = ", none,
         none},
        {"lying descriptor", zipOf({{"d", "data", 8, kPlainDescriptor, 0, {}, {}, 7U, 9U, 1U}, good}).archive(),
         "d=data good=good = ", none, none},
        {"stored size 0", zipOf({{"z", "data", 0, 0, 0, {}, {}, 0U}, good}).archive(), "z= = ", none, none},
        {"negative size", zipOf({{"n", "data", 0, 0, 0, {}, {}, 0x80000000U}, good}).archive(), "n= = ", none, none},
        {"4 GiB", zipOf({{"n", "data", 0, 0, 0, {}, {}, 0xFFFFFFFFU}, good}).archive(), "n= = ", none, none},
        {"2 GiB less 1", zipOf({{"n", "data", 0, 0, 0, {}, {}, 0x7FFFFFFFU}, good}).entries(),
         "n=data" + zipOf({good}).entries() + " = ", none, none},
        {"ZIP64", zipOf({{"q", "quad", 0, 0, 0, zip64, {}, 0xFFFFFFFFU, 0xFFFFFFFFU}, good}).archive(),
         "q=quad good=good = ", none, none},
        {"ZIP64, one size small", zipOf({{"q", "quad", 0, 0, 0, zip64, {}, 0xFFFFFFFFU, 4U}, good}).archive(),
         "q= = ", none, none},
        {"ZIP64, too large", zipOf({{"q", "quad", 0, 0, 0, huge, {}, 0xFFFFFFFFU, 0xFFFFFFFFU}, good}).archive(),
         "q= = ", none, none},
        {"no name", zipOf({{"", "x"}, good}).archive(), "=x good=good ", kAgain,
         "empty file name in central directory "},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        CapturedLog log(CapturedLog::kErrors);
        EntryCollector entries;
        EXPECT_EQ(walk(c.archive, entries), c.thrown);
        EXPECT_EQ(entries.contents(), c.contents);
        EXPECT_EQ(entries.ended, c.thrown.empty());
        EXPECT_EQ(entries.released, c.thrown.empty());
        std::string passedOver;
        for (const std::string& line : log.lines()) passedOver += line.substr(line.find("over: ") + 6) + " ";
        EXPECT_EQ(passedOver, c.passedOver);
    }
}

TEST(ZipUnarchiver, endsForGoodWhereAskedToOrWhereTheSourceEnds) {
    const std::string two = ZipBuilder().add({"a", "A"}).add({"b", "B"}).archive();
    for (const Source source : {kBuffer, kStream}) {
        EntryCollector aborting;
        aborting.actionOf = {{"b", kActionAbort}};
        EXPECT_NE(walk(two, aborting, source).find("Archiving aborted"), std::string::npos);
        EXPECT_EQ(aborting.contents(), "a=A b= ");
        EXPECT_EQ(aborting.ended, 0);
        EntryCollector cut;
        EXPECT_EQ(walk<IOException>(two.substr(0, 30), cut, source), "unexpected EOF");
    }
    EntryCollector entries;
    EXPECT_EQ(walk(ZipBuilder().add({"s", "secret", 8, 0, 1}).add({"b", "B"}).archive(), entries, kStream),
              "failed to restart zip unarchiving");
}

TEST(ZipUnarchiver, goesOnBehindAnEntryThatIsFull) {
    const std::string large(200'000, 'x');
    for (const Source source : {kBuffer, kStream}) {
        for (const int descriptor : {kNoDescriptor, kPlainDescriptor, kSignedDescriptor}) {
            for (const int method : {0, 8}) {
                if (source == kStream && method == 0 && descriptor != kNoDescriptor) continue;
                EntryCollector entries;
                entries.room = 1000;
                const ZipMember full{"full", large, method, descriptor, 0, {}, {}, {}, 10U};
                EXPECT_EQ(walk(ZipBuilder().add(full).add({"next", "next"}).archive(), entries, source), "");
                EXPECT_EQ(entries.contents(), "full=" + large.substr(0, 1000) + " next=next = ");
            }
        }
    }
}

TEST(ZipUnarchiver, chargesWhatItInflatesForNothing) {
    const std::string content(100'000, 'x');
    const std::string archive =
        ZipBuilder().add({"a", content, 8, kSignedDescriptor}).add({"b", "B", 8, 0, 1}).add({"c", "C"}).archive();
    const struct {
        Source source;
        int action;
        std::int64_t left;
        std::string contents, thrown;
    } cases[] = {
        {kBuffer, kActionSkip, 100'000, "a= c= = ", ""},
        {kBuffer, kActionSkip, 99'999, "a= ", "Out of budget"},
        {kBuffer, kActionDecompress, 0, "a=" + content + " c=C = ", ""},
        {kStream, kActionSkip, 99'999, "a= ", "Out of budget"},
        {kStream, kActionSkip, 100'000, "a= ", "failed to restart zip unarchiving"},
    };
    for (const auto& c : cases) {
        ScanBudget budget;
        const ScanBudget::Scope spending(budget);
        ScanBudget::chargeDiscardedBytes(ScanBudget::kDiscardedBytes - c.left);
        EntryCollector entries(c.action);
        const std::string thrown = c.thrown == "Out of budget" ? walk<OutOfBudgetException>(archive, entries, c.source)
                                                               : walk(archive, entries, c.source);
        EXPECT_EQ(thrown, c.thrown);
        EXPECT_EQ(entries.contents(), c.contents);
    }
}

TEST(ZipUnarchiver, searchesForTheEndOfStoredDataAtTheCostOfItsSize) {
    ZipBuilder zip;
    for (int i = 0; i < 1000; ++i) zip.add({"s", "some stored data", 0, kPlainDescriptor});
    ScanBudget budget;
    const ScanBudget::Scope spending(budget);
    ScanBudget::chargeDiscardedBytes(ScanBudget::kDiscardedBytes - 16'000);
    EntryCollector entries;
    EXPECT_EQ(walk(zip.archive(), entries), "");
    EXPECT_EQ(entries.entries.size(), 1001U);
}

TEST(ZipUnarchiver, offersADamagedEntryWithWhatOfItCanBeRead) {
    EntryCollector entries;
    const ZipMember torn{"torn", "abc", 8, kSignedDescriptor, 0, {}, "\x4b\x4c\x4a\x06\xff\xff\xff\xff"};
    EXPECT_EQ(walk(ZipBuilder().add(torn).add({"good", std::string(5000, 'g'), 0}).archive(), entries), "");
    EXPECT_EQ(entries.entries[0].uncompressedSize, 3);
    EXPECT_LE(entries.entries[0].compressedSize, 8);
}

TEST(ZipUnarchiver, survivesEveryTruncationAndRandomDamage) {
    ZipBuilder zip;
    zip.add({"stored", kDeceptive, 0}).add({"deflated", std::string(3000, 'd') + "tail"});
    zip.add({"sd", kDeceptive, 0, kPlainDescriptor}).add({"dd", "some text, some text", 8, kSignedDescriptor});
    zip.add({"q", "quad", 0, kLargeSignedDescriptor, 0, "\1\0\0\0"s}).add({"odd", "method", 12, kSignedDescriptor});
    const std::string archive = zip.archive();
    const auto survives = [](const std::string& bytes, int action) {
        for (const Source source : {kBuffer, kStream}) {
            EntryCollector entries(action);
            entries.room = 100'000;
            try {
                walk(bytes, entries, source);  // Anything but the framework's exceptions escapes.
            } catch (...) {
                ADD_FAILURE() << "of " << bytes.size() << " bytes, action " << action;
            }
            for (const CollectedEntry& entry : entries.entries) EXPECT_LE(entry.name.size(), 512U);
        }
    };
    for (std::size_t length = 0; length < archive.size(); ++length) {
        for (const int action : {kActionSkip, kActionCopy, kActionDecompress})
            survives(archive.substr(0, length), action);
    }
    std::mt19937 random(20240607);
    for (int round = 0; round < 3000; ++round) {
        std::string damaged = archive;
        for (auto n = random() % 6 + 1; n > 0; --n) damaged[random() % damaged.size()] = static_cast<char>(random());
        survives(damaged, static_cast<int>(random() % 3));
    }
}

TEST(ZipUnarchiver, acceptsLocalHeadersAndSplitMarkersAheadOfThem) {
    const struct {
        std::string start;
        bool accepted;
    } cases[] = {
        {"PK\3\4", true},       {"PK00PK\3\4", true},    {"PK\7\10PK\3\4", true}, {"", false},
        {"PK\3", false},        {"PK00PK\3", false},     {"PK00PK00", false},     {"PK\5\6PK\3\4", false},
        {"xPK\3\4xxxx", false}, {"PK\1\2PK\3\4", false},
    };
    for (const auto& c : cases) {
        MemBufferBase buffer;
        buffer.append(("?" + c.start).data(), static_cast<int>(c.start.size() + 1));
        BufferBaseInputStream in(&buffer, 1);
        EXPECT_EQ(ZipUnarchiver::checkFormat(in), c.accepted) << c.start;
        EXPECT_EQ(in.available(), static_cast<int>(c.start.size()));
    }
}

TEST(ZipInfo, readsDataDescriptors) {
    const std::string sums = littleEndian(11, 4) + littleEndian(22, 4) + littleEndian(33, 4);
    const struct {
        std::string bytes;
        int consumed;
        unsigned checkSum;
        int packed, unpacked;
    } cases[] = {
        {"PK\7\10" + sums + "PK\3\4", 16, 11, 22, 33},
        {sums + "PK\1\2", 12, 11, 22, 33},
        {sums, 12, 11, 22, 33},
        {sums.substr(0, 8), 8, 11, 22, 0},
        {"PK\7\10" + sums.substr(0, 4), 8, 11, 0, 0},
        {"", 0, 0, 0, 0},
        {"PK\3\4" + sums, 0, 5, 6, 7},
        {"PK\1\2" + sums, 0, 5, 6, 7},
        {"PK\5\6", 0, 5, 6, 7},
    };
    for (const auto& c : cases) {
        MemBufferBase buffer;
        buffer.append(c.bytes.data(), static_cast<int>(c.bytes.size()));
        BufferBaseInputStream in(&buffer);
        ZipInfo info;
        info.checkSum = 5;
        info.compressedSize = 6;
        info.uncompressedSize = 7;
        info.readDataDescriptor(in);
        EXPECT_EQ(in.available(), static_cast<int>(c.bytes.size()) - c.consumed);
        EXPECT_EQ(info.checkSum, c.checkSum);
        EXPECT_EQ(info.compressedSize, c.packed);
        EXPECT_EQ(info.uncompressedSize, c.unpacked);
    }
}

TEST(ZipInfo, readsTheCentralDirectoryAndTheEndRecord) {
    const ZipBuilder zip = ZipBuilder().add({"one", "1"}).add({std::string(600, 'n'), "2"}).add({"three", "3"});
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
        MemBufferBase buffer;
        buffer.append(directory.data(), static_cast<int>(c.length));
        BufferBaseInputStream in(&buffer);
        ZipInfo info;
        info.readCentralDirs(in, c.count);
        ASSERT_EQ(info.centralDirs.size(), c.found);
        EXPECT_EQ(info.end.read(in), c.end);
        EXPECT_EQ(info.end.entryCount, c.end ? 3 : 0);
        if (c.found > 1) {
            EXPECT_EQ(info.centralDirs[1]->name, std::string(512, 'n'));
            EXPECT_EQ(info.centralDirs[1]->checkSum, crc32Of("2"));
            EXPECT_EQ(info.centralDirs[1]->headerOffset, 30 + 3 + deflated("1").size());
        }
    }
}

TEST(ZipEndCentralDir, isSearchedForInTheLast64KiBlocks) {
    const std::string mark = "PK\5\6";
    const auto behind = [&](std::size_t before, std::size_t after) {
        return std::string(before, '.') + mark + std::string(after, '.');
    };
    const struct {
        std::string content;
        long position;
    } cases[] = {
        {"", 0},
        {mark, 0},
        {"." + mark, 1},
        {behind(5, 18), 5},
        {mark + behind(100, 18), 104},
        {behind(3000, 1021), 3000},
        {behind(3000, 1022), 3000},
        {behind(3000, 1026), 3000},
        {behind(7, 2045), 7},
        {behind(9, 65531), 9},
        {behind(9, 65532), 0},
    };
    for (const auto& c : cases) {
        MemBufferBase buffer;
        buffer.append(c.content.data(), static_cast<int>(c.content.size()));
        EXPECT_EQ(ZipEndCentralDir::findPos(buffer), c.position) << c.content.size();
    }
}

}  // namespace
}  // namespace ZOV_SPACE
