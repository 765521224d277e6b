// The standard filters undo what the transforms here, written for clarity, do to a block.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <random>
#include <vector>

#include "support/RarVmAssembler.h"
#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {
namespace {

using Bytes = std::vector<unsigned char>;
using Registers = std::array<unsigned int, 7>;
using Op = VmOperation;

constexpr std::size_t kHalf = RarVM::kGlobalAddress / 2;

unsigned char low(int value) { return static_cast<unsigned char>(value); }

// Distances of calls to positions in a file of 16 MiB that starts `position` before the block.
Bytes encodeE8(Bytes block, bool jumps, std::int64_t position) {
    constexpr std::int64_t kFile = 0x1000000;
    for (std::size_t i = 0; i + 4 < block.size(); ++i) {
        if (block[i] != 0xE8 && !(jumps && block[i] == 0xE9)) continue;
        const std::int64_t here = position + static_cast<std::int64_t>(i) + 1;
        std::int64_t distance = static_cast<std::int32_t>(loadU32(&block[i + 1]));
        if (distance >= -here && distance < kFile - here) {
            distance += here;
        } else if (distance >= kFile - here && distance < kFile) {
            distance -= kFile;
        }
        RarVM::SetValue(&block[i + 1], static_cast<unsigned>(distance));
        i += 4;
    }
    return block;
}

// Adds the number of each bundle to its branch targets. Bits are taken one at a time.
Bytes encodeItanium(Bytes block, std::uint32_t position) {
    const std::string branches[32] = {"",  "",  "",   "",   "", "", "",    "",    "",  "",  "", "", "",  "",  "", "",
                                      "2", "2", "12", "12", "", "", "012", "012", "2", "2", "", "", "2", "2", "", ""};
    for (std::size_t i = 0; i + 21 < block.size(); i += 16) {
        const auto bits = [&](unsigned from, unsigned count) {
            std::uint32_t value = 0;
            for (unsigned k = 0; k < count; ++k) value |= (block[i + (from + k) / 8] >> (from + k) % 8 & 1U) << k;
            return value;
        };
        for (const char slot : branches[bits(0, 5)]) {
            const unsigned start = 5 + 41 * static_cast<unsigned>(slot - '0');
            if (bits(start + 37, 4) != 5) continue;
            const std::uint32_t target = bits(start + 13, 20) + (position >> 4) + static_cast<std::uint32_t>(i / 16);
            for (unsigned k = 0; k < 20; ++k) {
                unsigned char& byte = block[i + (start + 13 + k) / 8];
                const unsigned bit = (start + 13 + k) % 8;
                byte = low((byte & ~(1 << bit)) | static_cast<int>(target >> k & 1) << bit);
            }
        }
    }
    return block;
}

// The channels one after the other, each byte subtracted from what `predict` makes of those before it.
Bytes encodeChannels(const Bytes& block, std::size_t channels,
                     const std::function<int(const Bytes& block, std::size_t i)>& predict) {
    Bytes coded;
    for (std::size_t channel = 0; channel < channels; ++channel) {
        for (std::size_t i = channel; i < block.size(); i += channels)
            coded.push_back(low(predict(block, i) - block[i]));
    }
    return coded;
}

Bytes encodeDelta(const Bytes& block, std::size_t channels) {
    return encodeChannels(block, channels,
                          [=](const Bytes& b, std::size_t i) { return i < channels ? 0 : b[i - channels]; });
}

Bytes encodeRgb(Bytes block, std::size_t width, std::size_t firstColour) {
    for (std::size_t i = firstColour; i + 2 < block.size(); i += 3) {
        block[i] = low(block[i] - block[i + 1]);
        block[i + 2] = low(block[i + 2] - block[i + 1]);
    }
    return encodeChannels(block, 3, [=](const Bytes& b, std::size_t i) -> int {
        const int left = i < 3 ? 0 : b[i - 3];
        if (i < width + 3) return left;
        const int above = b[i - width], corner = b[i - width - 3], sum = left + above - corner;
        int best = left;
        for (const int candidate : {above, corner}) {
            if (std::abs(sum - candidate) < std::abs(sum - best)) best = candidate;
        }
        return best;
    });
}

Bytes encodeAudio(const Bytes& block, std::size_t channels) {
    int last = 0, delta = 0, d[4] = {}, k[4] = {}, errors[7] = {}, count = 0;
    return encodeChannels(block, channels, [&](const Bytes& b, std::size_t i) {
        if (i < channels) {
            last = delta = count = 0;
            std::fill_n(d, 4, 0), std::fill_n(k, 4, 0), std::fill_n(errors, 7, 0);
        }
        d[3] = d[2], d[2] = delta - d[1], d[1] = delta;
        const int predicted = (8 * last + k[1] * d[1] + k[2] * d[2] + k[3] * d[3]) >> 3 & 0xFF;
        delta = static_cast<std::int8_t>(b[i] - last);
        last = b[i];
        const int error = static_cast<std::int8_t>(predicted - b[i]) * 8;
        for (int j = 0; j < 7; ++j) errors[j] += std::abs(error + (j % 2 ? -1 : 1) * (j ? d[(j + 1) / 2] : 0));
        if (count++ % 32 == 0) {
            const auto best = std::min_element(errors, errors + 7) - errors;
            int& weight = k[(best + 1) / 2];
            if (best % 2 == 1 && weight >= -16) --weight;
            if (best > 0 && best % 2 == 0 && weight < 16) ++weight;
            std::fill_n(errors, 7, 0);
        }
        return predicted;
    });
}

Bytes encodeUpcase(const Bytes& block) {
    Bytes coded;
    for (const unsigned char byte : block) {
        const bool capital = byte >= 'A' && byte <= 'Z';
        if (capital || byte == 2) coded.push_back(2);
        coded.push_back(capital ? low(byte + 32) : byte);
    }
    return coded;
}

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
            RarVM::FilterItanium_SetBits(&block[i], 5, 5 + 41 * random(3) + 37, 4);
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

TEST_F(RarFiltersTest, restoreWhatWasEncoded) {
    for (int round = 0; round < 400; ++round) {
        const std::size_t size = round < 350 ? random(600) : random(kHalf + 1);
        const Bytes block = randomBlock(size);
        const std::uint32_t position = random(0x1000000) >> random(24);
        const auto channels = 1 + random(round % 10 == 0 ? 1024 : 6);
        const Registers at{channels, 0, 0, 0, 0, 0, position};
        SCOPED_TRACE(testing::Message() << size << " bytes at " << position << ", " << channels << " channels");
        EXPECT_EQ(filtered(kFilterE8, encodeE8(block, false, position), at), block);
        EXPECT_EQ(filtered(kFilterE8E9, encodeE8(block, true, position), at), block);
        const Bytes bundles = machineCode(block);
        EXPECT_EQ(filtered(kFilterItanium, encodeItanium(bundles, position), at), bundles);
        EXPECT_EQ(filtered(kFilterDelta, encodeDelta(block, channels), at), block);
        EXPECT_EQ(filtered(kFilterAudio, encodeAudio(block, channels), at), block);
        if (size >= 3) {
            const std::size_t width = 3 + 3 * random(std::min<std::size_t>(size / 3, 60));
            const unsigned colour = random(3);
            const Registers picture{static_cast<unsigned>(width + 3), colour};
            EXPECT_EQ(filtered(kFilterRgb, encodeRgb(block, width, colour), picture), block);
        }
        const Bytes text = encodeUpcase(block);
        if (text.size() <= kHalf) {
            EXPECT_EQ(filtered(kFilterUpcase, text, at), block);
        }
    }
}

TEST_F(RarFiltersTest, leaveBlocksAloneThatDoNotFit) {
    struct Row {
        VM_StandardFilters filter;
        std::size_t size;
        Registers registers;
    };
    const Row rows[] = {
        {kFilterE8, 0, {}},
        {kFilterE8, 3, {}},
        {kFilterE8E9, RarVM::kGlobalAddress + 1, {}},
        {kFilterItanium, 20, {}},
        {kFilterItanium, RarVM::kGlobalAddress + 1, {}},
        {kFilterDelta, kHalf + 1, {1}},
        {kFilterDelta, 100, {0}},
        {kFilterDelta, 100, {1025}},
        {kFilterAudio, kHalf + 1, {1}},
        {kFilterAudio, 100, {0}},
        {kFilterAudio, 100, {0xFFFFFFFF}},
        {kFilterRgb, kHalf + 1, {10, 0}},
        {kFilterRgb, 2, {4, 0}},
        {kFilterRgb, 99, {3, 0}},
        {kFilterRgb, 99, {2, 0}},
        {kFilterRgb, 99, {103, 0}},
        {kFilterRgb, 99, {10, 3}},
        {kFilterRgb, 99, {10, 0xFFFFFFFF}},
        {kFilterUpcase, kHalf + 1, {}},
    };
    for (const Row& row : rows) {
        Bytes block(row.size);
        for (std::size_t i = 0; i < row.size; ++i) block[i] = low(static_cast<int>(i % 5 ? i : 0xE8));
        Bytes result = filtered(row.filter, block, row.registers);
        ASSERT_EQ(result.size(), row.size);
        result.resize(
            std::min<std::size_t>(row.size, RarVM::kGlobalAddress));  // Global data overwrites what is behind.
        EXPECT_TRUE(std::equal(result.begin(), result.end(), block.begin())) << "row " << &row - rows;
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
    const auto kindOf = [](const Bytes& bytes) {
        return RarVM::IsStandardFilter(bytes.data(), static_cast<int>(bytes.size()));
    };
    for (const auto filter :
         {kFilterE8, kFilterE8E9, kFilterItanium, kFilterDelta, kFilterRgb, kFilterAudio, kFilterUpcase}) {
        EXPECT_EQ(kindOf(standInProgram(filter)), filter);
    }
    EXPECT_EQ(kindOf(standInProgram(30, 0x0E06077D)), kFilterNone);
    code.back() ^= 1;
    EXPECT_EQ(kindOf(code), kFilterNone);
}

// The same transforms as programs of our own, for the machine to interpret.
TEST_F(RarFiltersTest, programsInTheMachineDoTheSame) {
    RarVmAssembler delta;  // R1 source, R2 destination, R5 end, R6 channel, R3 last byte
    delta.dword(Op::mov, at(RarVM::kGlobalAddress + RarVM::kBlockStartOffset), reg(4));
    delta.dword(Op::mov, reg(5), reg(4)).dword(Op::add, reg(5), reg(4)).dword(Op::sub, reg(6), reg(6));
    delta.dword(Op::mov, reg(3), imm(0)).dword(Op::mov, reg(2), reg(4)).dword(Op::add, reg(2), reg(6));
    delta.dword(Op::cmp, reg(2), reg(5)).jump(Op::jae, 14);
    delta.byte(Op::sub, reg(3), at(reg(1))).byte(Op::mov, at(reg(2)), reg(3)).dword(Op::inc, reg(1));
    delta.dword(Op::add, reg(2), reg(0)).dword(Op::jmp, imm(10));  // Six back.
    delta.dword(Op::inc, reg(6)).dword(Op::cmp, reg(6), reg(0)).jump(Op::jb, 4).dword(Op::ret);

    RarVmAssembler calls;  // R1 position, R2 where the last may be, R3 address, R5 position in the file
    calls.dword(Op::mov, reg(2), reg(4)).dword(Op::sub, reg(2), imm(4)).jump(Op::jbe, 24);
    calls.dword(Op::cmp, reg(1), reg(2)).jump(Op::jae, 24).dword(Op::inc, reg(1));
    calls.byte(Op::cmp, at(reg(1), 0xFFFFFFFF), imm(0xE8)).jump(Op::jnz, 3);
    calls.dword(Op::mov, reg(5), reg(1)).dword(Op::add, reg(5), reg(6)).dword(Op::mov, reg(3), at(reg(1)));
    calls.dword(Op::test, reg(3), reg(3)).jump(Op::js, 17).dword(Op::cmp, reg(3), imm(0x1000000)).jump(Op::jae, 22);
    calls.dword(Op::sub, reg(3), reg(5)).jump(Op::jmp, 21).dword(Op::add, reg(5), reg(3)).jump(Op::js, 22);
    calls.dword(Op::add, reg(3), imm(0x1000000)).dword(Op::print).dword(Op::mov, at(reg(1)), reg(3));
    calls.dword(Op::add, reg(1), imm(4)).jump(Op::jmp, 3).dword(Op::ret);

    for (int round = 0; round < 100; ++round) {
        const Bytes block = randomBlock(random(5000));
        const Registers registers{1 + random(9), 0, 0, 0, 0, 0, random(0x1000000)};
        EXPECT_EQ(runProgram(vm, delta.build(), block, registers), filtered(kFilterDelta, block, registers));
        EXPECT_EQ(runProgram(vm, calls.build(), block, registers), filtered(kFilterE8, block, registers));
    }
}

}  // namespace
}  // namespace ZOV_SPACE
