#include "EntryStreams.h"

#include <gtest/gtest.h>

#include <memory>
#include <span>
#include <string>

#include "support/EntryCollector.h"
#include "support/StringBuffer.h"
#include "support/Thrown.h"
#include "unarchiver/ScanBudget.h"
#include "unused/OutputStreams.h"

namespace ZOV_SPACE {
namespace {

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
    int action = 0;
    const std::unique_ptr<OutputStream> full = entries.processEntry(&info, action);
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
