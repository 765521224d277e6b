#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "support/GoldenRows.h"
#include "support/RarVmAssembler.h"
#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {
namespace {

using Bytes = std::vector<unsigned char>;
using Registers = std::array<unsigned int, 7>;

constexpr std::size_t kHalf = RarVM::kGlobalAddress / 2;

unsigned char low(int value) { return static_cast<unsigned char>(value); }

class RarFiltersTest : public testing::Test {
protected:
    RarFiltersTest() { vm.Init(); }

    Bytes randomBlock(std::size_t size) {
        Bytes block(size);
        int level = 0;
        for (unsigned char& byte : block) {
            level += static_cast<int>(random(9)) - 4;
            const unsigned kind = random(8);
            byte = low(kind < 4   ? level
                       : kind < 5 ? 0xE8 + static_cast<int>(random(2))
                                  : static_cast<int>(random(256)));
        }
        // The upper bytes of addresses, so that not all are too far.
        for (std::size_t i = 4; i < size; ++i) {
            if ((block[i - 4] & 0xFE) == 0xE8) block[i] = low(static_cast<int>(random(3)) - 1);
        }
        return block;
    }
    // With branches in any slot of all bundles.
    Bytes machineCode(Bytes block) {
        for (std::size_t i = 0; i + 20 < block.size(); i += 16) {
            block[i] = low(16 + static_cast<int>(random(16)));
            RarStandardFilters::FilterItanium_SetBits(&block[i], 5, 5 + 41 * random(3) + 37, 4);
        }
        return block;
    }
    Bytes filtered(VM_StandardFilters filter, const Bytes& block, const Registers& registers) {
        return runProgram(vm, standInProgram(filter), block, registers);
    }

    // Below n.
    unsigned random(std::size_t n) { return static_cast<unsigned>(_generator() % n); }

    RarVM vm;

private:
    std::mt19937 _generator{1};
};

// The checksums are of results that slow, independent transforms turned back into what they came of.
TEST_F(RarFiltersTest, changeBlocksAsTheyAlwaysDid) {
    struct Row {
        VM_StandardFilters filter;
        std::uint32_t expected;
        Iso3309Crc crc = {};
    } rows[] = {{kFilterE8, 0xD79BC766},    {kFilterE8E9, 0x493BA6A4},  {kFilterItanium, 0x27D5A5CA},
                {kFilterDelta, 0x0018F565}, {kFilterAudio, 0x2B1465A9}, {kFilterUpcase, 0x59757D18},
                {kFilterRgb, 0x90736C06}};
    for (int round = 0; round < 400; ++round) {
        const std::size_t size = round < 350 ? random(600) : random(kHalf + 1);
        const std::uint32_t position = random(0x1000000) >> random(24);
        const unsigned channels = 1 + random(round % 10 == 0 ? 1024 : 6), colour = random(3);
        const unsigned width = 6 + 3 * random(std::min<std::size_t>(size / 3 + 1, 60));
        const Bytes block = randomBlock(size), bundles = machineCode(block);
        for (Row& row : rows) {
            const bool isRgb = row.filter == kFilterRgb;
            const Registers at{isRgb ? width : channels, colour, 0, 0, 0, 0, position};
            const Bytes result = filtered(row.filter, row.filter == kFilterItanium ? bundles : block, at);
            row.crc.add(result.data(), static_cast<unsigned>(result.size()));
        }
    }
    for (Row& row : rows) EXPECT_EQ(row.crc.crc(), row.expected) << "filter " << row.filter;
}

TEST_F(RarFiltersTest, leaveBlocksAloneThatDoNotFit) {
    for (const GoldenRow& row : goldenRows(VOLE_RAR_ROWS, "unfit")) {
        const std::vector<std::uint32_t> given = numbersIn(row[0]);
        const std::size_t size = given[1];
        Bytes block(size);
        for (std::size_t i = 0; i < size; ++i) block[i] = low(static_cast<int>(i % 5 ? i : 0xE8));
        const Bytes result = filtered(static_cast<VM_StandardFilters>(given[0]), block, {given[2], given[3]});
        ASSERT_EQ(result.size(), size);
        // Global data overwrites what is behind.
        const auto end = block.begin() + static_cast<std::ptrdiff_t>(std::min(size, kHalf * 2));
        EXPECT_TRUE(std::equal(block.begin(), end, result.begin())) << row[1];
    }
}

TEST_F(RarFiltersTest, leaveBlocksAloneWithoutBudget) {
    const Bytes block(400, 1);
    for (const VM_StandardFilters filter : {kFilterDelta, kFilterAudio}) {
        ScanBudget budget;
        const ScanBudget::Scope scope(budget);
        EXPECT_NE(filtered(filter, block, {1}), block);
        ScanBudget::takeVmInstructions(ScanBudget::vmInstructionsLeft() - 90);
        EXPECT_EQ(filtered(filter, block, {1}), block);
    }
}

TEST_F(RarFiltersTest, areKnownByLengthAndCrc) {
    Bytes code = standInProgram(kFilterDelta);
    const auto kindOf = [&code] {
        return RarStandardFilters::IsStandardFilter(code.data(), static_cast<int>(code.size()));
    };
    EXPECT_EQ(kindOf(), kFilterDelta);
    code.back() ^= 1;
    EXPECT_EQ(kindOf(), kFilterNone);
    code = standInProgram(30, 0x0E06077D);
    EXPECT_EQ(kindOf(), kFilterNone);
}

}  // namespace
}  // namespace ZOV_SPACE
