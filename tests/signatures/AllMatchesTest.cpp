#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "Raise.h"
#include "VoleScanner.h"
#include "io/ContinuousMemBufferBase.h"
#include "support/Content.h"
#include "support/SignatureText.h"
#include "support/Thrown.h"
#include "unarchiver/ScanBudget.h"

namespace {

using ZOV_SPACE::IOBuffer;
using ZOV_SPACE::ScanBudget;

struct Matches : MatchVisitor {
    bool onMatch(const SignatureMatch& match) override {
        text += match.name + (match.offset ? "@" + std::to_string(*match.offset) : "") + " ";
        return --enough == 0;
    }
    std::string text;
    int enough = -1;
};

// Bytes from `end` on are there by the size, and cannot be read.
struct Broken : ZOV_SPACE::ContinuousMemBufferBase {
    Broken() : ContinuousMemBufferBase(1) {}
    using ContinuousMemBufferBase::read;
    int read(long pos, char* buf, int n) override {
        if (pos + n > end) ZOV_SPACE::raise<ZOV_SPACE::IOException>("broken");
        return ContinuousMemBufferBase::read(pos, buf, n);
    }
    std::span<const char> view(long) override { return {}; }
    long end = 0;
};

// The line of a record for the 8 bytes there.
std::string recordAt(const std::string& bytes, std::size_t offset, const char* name) {
    const std::string line = startRecord(bytes.substr(offset, 8), name),
                      start = {static_cast<char>(offset >> 8), static_cast<char>(offset)};
    return line.substr(0, 8) + toHex(start) + line.substr(12, line.size() - 13);
}

TEST(Scanners, passAllMatchesNewestFirst) {
    const std::string bytes = ZOV_SPACE::numbered(300), other(20, 'x');
    ZOV_SPACE::ContinuousMemBufferBase memory(1);
    memory.append(bytes.data(), 300);
    IOBuffer buffer(&memory);
    BmList digests;
    CheckSumList sums;
    const std::string digest = toHex(md5Of(bytes));
    for (const std::string& line : {digest + ":300:a", toHex(md5Of(other)) + ":300:b", digest + ":300:c"})
        digests.addString(line.c_str());
    for (const std::string& line :
         {recordAt(bytes, 0, "a"), recordAt(bytes, 150, "b"), recordAt(other, 1, "x"), recordAt(bytes, 0, "c")}) {
        sums.addString(line.c_str());
    }
    for (int turn = 0; turn < 2; ++turn) {
        for (const auto& [enough, all, found] : {std::tuple(-1, "c a c@0 b@150 a@0 ", false), {1, "c c@0 ", true}}) {
            Matches matches;
            matches.enough = enough;
            EXPECT_EQ(Md5Scanner(digests).scan(&buffer, 300, matches), found);
            matches.enough = enough;
            EXPECT_EQ(ChkScanner(sums).scan(&buffer, 300, matches, kTargetAny), found);
            EXPECT_EQ(matches.text, all);
        }
        sums.index();
    }
}

TEST(ChkScanner, saysWhenWhatItAskedForCouldNotBeRead) {
    std::string plain = ZOV_SPACE::numbered(4000), dosProgram = plain;
    dosProgram.replace(0, 2, "MZ").replace(0x3C, 4, std::string("\xB8\x0B\0\0", 4));  // Its new header: at 3000.
    for (const auto& [why, bytes, offset, end, found, failed] :
         {std::tuple("what nobody asks for", plain, 0, 2000, true, false),
          {"a range", plain, 1990, 1996, false, true},
          {"whether it is a PE file", dosProgram, 0, 2000, true, true},
          {"a check string up to the end", plain, 3992, 4000, true, false}}) {
        Broken broken;
        broken.append(bytes.data(), 4000);
        broken.end = end;
        IOBuffer buffer(&broken);
        CheckSumList sums;
        sums.addString(recordAt(bytes, static_cast<std::size_t>(offset), "x").c_str());
        std::string name;
        for (int turn = 0; turn < 2; ++turn) {
            ChkScanner scanner(sums);
            EXPECT_EQ(scanner.scan(&buffer, 4000, name, kTargetAny), found) << why;
            EXPECT_EQ(scanner.failed(), failed) << why;
            sums.index();
        }
    }
}

TEST(Md5Scanner, tellsOfEachPieceAndStopsWhenTold) {
    struct : ZOV_SPACE::ScanWatch {
        void onWork(std::int64_t n) override {
            told.push_back(n);
            if (told.size() == 4) ZOV_SPACE::raise<ZOV_SPACE::ScanStoppedException>("stopped");
        }
        std::vector<std::int64_t> told;
    } watch;
    ScanBudget budget(&watch);
    const ScanBudget::Scope scope(budget);
    ZOV_SPACE::ContinuousMemBufferBase memory(1);
    const std::string piece(1 << 20, 'x');
    for (int i = 0; i < 17; ++i) memory.append(piece.data(), static_cast<int>(piece.size()));
    IOBuffer buffer(&memory);
    BmList list;
    list.addString("00112233445566778899aabbccddeeff:17825792:x");
    std::string name;
    EXPECT_FALSE(Md5Scanner(list).scan(&buffer, 17 << 20, name));
    EXPECT_EQ(watch.told, (std::vector<std::int64_t>{8 << 20, 8 << 20, 1 << 20}));
    EXPECT_THROW(Md5Scanner(list).scan(&buffer, 17 << 20, name), ZOV_SPACE::ScanStoppedException);
}

}  // namespace
