#include "unarchiver/Pakfold.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <utility>

#include "EntryStreams.h"
#include "support/EntryCollector.h"
#include "support/StringBuffer.h"
#include "support/Thrown.h"
#include "unarchiver/ScanBudget.h"
#include "unused/OutputStreams.h"

namespace ZOV_SPACE {
namespace {

TEST(Pakfold, whatBaseClassesLeaveOpenThrowsAtItsPublishedLine) {
    StringSource source("");
    BufferBaseInputStream& in = source.stream;
    BufferBaseOutputStream out(&source.buffer);
    Archiver archiver;
    const std::pair<int, std::function<void()>> cases[] = {
        {130, [&] { Encoder().encode(in, out); }},
        {160, [&] { Decoder().decode(in, out); }},
        {296, [&] { Decompressor().decompress(in, out); }},
        {497, [&] { archiver.addEntry(nullptr, in); }},
        {502, [&] { archiver.addRawEntry(nullptr, in); }},
        {508, [&] { archiver.addRawEntry(nullptr); }},
        {514, [&] { archiver.finish(); }},
        {664, [] { Unarchiver().start(); }},
    };
    for (const auto& [line, call] : cases) {
        EXPECT_EQ(thrownBy<ArchivingException>(call), "Unimplemented");
        EXPECT_EQ(locationThrownBy(call), "Pakfold, line" + std::to_string(line));
    }
}

// Throws an E from its check.
template <class E>
struct Picky : Unarchiver {
    Picky(InputStream*, ArchiveEntryProcessor&, DecompressProcessor*, unsigned) {}
    Picky(BufferBase*, ArchiveEntryProcessor&, DecompressProcessor*, unsigned) {}
    static bool checkFormat(InputStream&) { throw E("no"); }
};

TEST(Pakfold, idsTakeFailedChecksForNo) {
    StringSource one("x");
    EXPECT_FALSE(SimpleArchiveId<Picky<IOException>>().accept(one.stream));
    EXPECT_FALSE(SimpleArchiveId<Picky<ArchivingException>>().accept(one.stream));
    const SimpleArchiveId<Picky<CompressionException>> strict;
    EXPECT_EQ(thrownBy<CompressionException>([&] { strict.accept(one.stream); }), "no");
    ArchiveEntryProcessor entries;
    BufferBaseOutputStream out(&one.buffer);
    for (ArchiveId* const no : {&ARCHIVEID_UNKNOWN, &ARCHIVEID_NONE}) {
        EXPECT_FALSE(no->accept(one.stream) || no->unarchiver(&one.stream, entries, nullptr) ||
                     no->unarchiver(&one.buffer, entries, nullptr) || no->archiver(out) ||
                     no->entryArchivable(nullptr) || no->crc() || no->archivable());
    }
    ArchiveEntryInfo minus, zero;
    minus.processorWord = -1;
    EXPECT_TRUE(minus < zero && !(zero < minus) && !(zero < zero)) << "entries go by the signed word";
}

TEST(EntryStreams, thePumpCopiesAsManyBytesAsWereAskedFor) {
    StringSource source("0123456789");
    StringOutputStream copy;
    PumpInputStream in(&source.stream, &copy);
    char bytes[8] = "XXXXXXX";
    EXPECT_EQ(in.read(), '0');
    EXPECT_EQ(in.skip(5), 5);
    EXPECT_EQ(in.read(bytes, 7), 4);
    EXPECT_EQ(in.read(), -1);
    EXPECT_EQ(copy.getString(), std::string("0123456789\0\0\0\0", 14));
    EXPECT_EQ(std::string(bytes, 7), std::string("6789\0\0\0", 7));
    EXPECT_EQ(thrownBy([&] { in.mark(1); }) + thrownBy([&] { in.reset(); }), "UnimplementedUnimplemented");
}

TEST(EntryStreams, whatIsTakenOrDroppedCountsAgainstTheBudget) {
    ScanBudget budget;
    const ScanBudget::Scope scope(budget);
    EntryCollector entries;
    entries.room = 3;
    ArchiveEntryInfo info;
    const std::unique_ptr<OutputStream> full = entries.processEntry(&info, entries.action);
    CutOffOutputStream sink(full.get());
    sink.write('h');
    EXPECT_EQ(sink.write("ello", 4), 4);
    EXPECT_EQ(entries.entries[0].bytes, "hel");
    ScanBudget::chargeDiscardedBytes(ScanBudget::kDiscardedBytes - 3);
    EXPECT_EQ(sink.write("12", 2), 2);
    NullOutputStream nothing;
    EXPECT_EQ(nothing.write('3'), 1);
    EXPECT_EQ(thrownBy<OutOfBudgetException>([&] { sink.write("4", 1); }), "Out of budget");
    EXPECT_EQ(thrownBy<OutOfBudgetException>([&] { nothing.write('5'); }), "Out of budget");

    struct : StringOutputStream {  // Lends what is never looked at.
        std::span<char> lendSpace() override { return space; }
        void commitSpace(long n) override { committed += n; }
        char space[8];
        long committed = 0;
    } lender;
    TakenOutputStream taken(&lender);
    ScanBudget::chargeTakenBytes(ScanBudget::kTakenBytes - 6);
    taken.write('a');
    taken.write("bc", 2);
    EXPECT_EQ(taken.lendSpace().size(), 8U);
    taken.commitSpace(3);
    EXPECT_EQ(thrownBy<OutOfBudgetException>([&] { taken.commitSpace(1); }), "Out of budget");
    EXPECT_EQ(lender.getString() + std::to_string(lender.committed + taken.taken()), "abc9");
}

}  // namespace
}  // namespace ZOV_SPACE
