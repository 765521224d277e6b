#include "rar/vm/RarVm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "rar/RarBitInputStream.h"
#include "support/GoldenRows.h"
#include "support/RarVmAssembler.h"
#include "support/StringBuffer.h"
#include "support/Thrown.h"
#include "unarchiver/ScanBudget.h"

namespace ZOV_SPACE {
namespace {

using Bytes = std::vector<unsigned char>;
using Words = std::vector<std::uint32_t>;
using Op = VmOperation;

constexpr std::uint32_t kCarry = 1;
constexpr std::uint32_t kZero = 2;
constexpr std::uint32_t kSign = 0x80000000;

class RarVmTest : public testing::Test {
protected:
    RarVmTest() { vm.Init(); }

    // The block's first words after the program.
    Words words(RarVmAssembler program, std::size_t count) { return wordsOf(program.dword(Op::ret).build(), count); }
    Words wordsOf(const Bytes& code, std::size_t count = 4) {
        const Bytes result = runProgram(vm, code, Bytes(256));
        Words values(count);
        for (std::size_t i = 0; i < count && result.size() >= 4 * count; ++i) values[i] = loadU32(&result[4 * i]);
        return values;
    }

    VM_PreparedProgram preparedFrom(const Bytes& code) {
        VM_PreparedProgram program;
        EXPECT_TRUE(vm.Prepare(code.data(), static_cast<int>(code.size()), &program));
        return program;
    }

    RarVM vm;
};

TEST_F(RarVmTest, commandsComputeAndSetFlags) {
    using enum VmOperation;
    const std::set<Op> unary{inc, dec, bitNot, neg};
    for (const GoldenRow& row : goldenRows(VOLE_RAR_ROWS, "command")) {
        const Words given = numbersIn(row[0]);
        const Op operation = static_cast<Op>(given[0]);
        for (const bool inMemory : {false, true}) {
            for (const bool flagsRead : {true, false}) {
                SCOPED_TRACE(testing::Message() << row[2] << ", memory " << inMemory << " flags " << flagsRead);
                const RarVmOperand a = inMemory ? at(reg(6), 0x40) : reg(0), b = inMemory ? at(0x24) : reg(1), none;
                const RarVmOperand to = operation == print ? none : a;
                const RarVmOperand from = operation == print || unary.contains(operation) ? none : b;
                RarVmAssembler program;
                program.mov(reg(6), imm(0xFFFFFFE0)).mov(a, imm(given[2])).mov(b, imm(given[3]));
                program.dword(push, imm(given[4])).dword(popFlags);
                given[1] ? program.byte(operation, to, from) : program.dword(operation, to, from);
                if (!flagsRead) program.dword(test, reg(2), reg(2));
                program.dword(pushFlags).dword(pop, at(8)).dword(test, reg(2), reg(2));
                program.mov(at(0), a).mov(at(4), b);
                Words expected = numbersIn(row[1]);
                if (!flagsRead) expected[2] = kZero;
                EXPECT_EQ(words(program, 3), expected);
            }
        }
    }
}

TEST_F(RarVmTest, jumpsGoByTheFlags) {
    for (const GoldenRow& row : goldenRows(VOLE_RAR_ROWS, "jump")) {
        std::string taken;
        for (const std::uint32_t flags : {0U, kCarry, kZero, kSign, kCarry | kZero}) {
            RarVmAssembler program;
            program.dword(Op::push, imm(flags)).dword(Op::popFlags);
            program.jump(static_cast<Op>(numbersIn(row[0])[0]), 4).mov(at(0), imm(1));
            taken += words(program, 1)[0] == 0 ? 'y' : 'n';
        }
        EXPECT_EQ(taken, row[1]) << row[2];
    }
}

TEST_F(RarVmTest, jumpsAreCodedAsDistancesOrTargets) {
    constexpr std::uint32_t kPosition = 200;
    for (const GoldenRow& row : goldenRows(VOLE_RAR_ROWS, "coded")) {
        const std::uint32_t coded = numbersIn(row[0])[0], target = numbersIn(row[0])[1];
        for (const Op operation : {Op::jmp, Op::jae, Op::call}) {
            RarVmAssembler program;
            while (program.next() < kPosition) program.dword(Op::print);
            const VM_PreparedProgram prepared =
                preparedFrom(program.dword(operation, imm(coded)).dword(Op::push, imm(coded)).build());
            EXPECT_EQ(prepared.Cmd[kPosition].Op1.Base, target) << row[1];
            EXPECT_EQ(prepared.Cmd[kPosition + 1].Op1.Base, coded);
        }
    }
}

TEST_F(RarVmTest, programsUseStackAndAddresses) {
    for (const GoldenRow& row : goldenRows(VOLE_RAR_ROWS, "program")) {
        const Words code = numbersIn(row[0]);
        EXPECT_EQ(wordsOf(Bytes(code.begin(), code.end())), numbersIn(row[1])) << row[2];
    }
    // The last one wrote there; what is put there is cut at the end of memory.
    const Bytes data(16, 7);
    vm.SetMemory(0x3FFFE, data.data(), 16);
    vm.SetMemory(0x40000, data.data(), 16);
    EXPECT_EQ(words(RarVmAssembler().mov(at(0), at(0x3FFFE)), 1), Words{0x33330707});
}

TEST_F(RarVmTest, aRunLoadsAndKeepsGlobalData) {
    RarVmAssembler assembler({9, 8, 7});
    assembler.mov(at(0x3C010), at(RarVM::kGlobalAddress + 100)).mov(at(0x3C01C), reg(0)).mov(at(0x3C020), reg(1));
    const Bytes code = assembler.mov(at(0x3C030), reg(2)).dword(Op::ret).build();
    struct Row {
        std::uint32_t length, start, globalSize;
        std::size_t resultSize, resultStart, kept;
    };
    const Row rows[] = {
        {0x20, 0x3FFDF, 36, 0x20, 0x3FFDF, 100},      {0x20, 0x3FFE0, 0, 0, 0, 64},
        {0x20, 0x3FFF0, 0x1FFF, 0, 0, 0x203F},        {0xFFF40005, 0xFF040001, 0x2000, 5, 0x1, 0x2040},
        {0x3FFFF, 0x3FFFF, 0xFFFFFFFF, 0, 0, 0x2040},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.start);
        VM_PreparedProgram program = preparedFrom(code);
        program.InitR = {row.length, row.start, row.globalSize};
        program.GlobalData.Add(100);
        program.GlobalData[99] = 0x5A;
        vm.Execute(&program);
        EXPECT_EQ(program.FilteredDataSize, row.resultSize);
        vm.SetMemory(static_cast<unsigned>(row.resultStart), code.data(), 1);
        EXPECT_EQ(*program.FilteredData, code[0]);
        ASSERT_EQ(program.GlobalData.size(), row.kept);
        EXPECT_EQ(loadU32(&program.GlobalData[0x10]) & 0xFFFFFF, 0x070809U) << "static data behind the global data";
    }

    VM_PreparedProgram full;
    full.GlobalData.Add(RarVM::kGlobalBytes + 5);
    full.StaticData.Add(5);
    std::fill(full.StaticData.begin(), full.StaticData.end(), std::uint8_t{0xEE});
    full.GlobalData[offsetof(RarVmGlobals, keptBytes) + 1] = 0x20;
    full.GlobalData[RarVM::kGlobalBytes] = 0xEE;
    vm.Execute(&full);
    EXPECT_EQ(std::count(full.GlobalData.begin(), full.GlobalData.end(), 0xEE), 0);
}

TEST_F(RarVmTest, runsEndAtTheirLimit) {
    ScanBudget budget;
    const ScanBudget::Scope scope(budget);
    VM_PreparedProgram program = preparedFrom(RarVmAssembler().dword(Op::inc, at(0)).jump(Op::jmp, 0).build());
    vm.Execute(&program);
    EXPECT_EQ(ScanBudget::vmInstructionsLeft(), ScanBudget::kVmInstructions - RarVM::kMostInstructions);
    EXPECT_TRUE(program.Cmd[0].OpCode == Op::ret && program.Cmd[1].OpCode == Op::jmp);
    vm.Execute(&program);
    EXPECT_EQ(ScanBudget::vmInstructionsLeft(), ScanBudget::kVmInstructions - RarVM::kMostInstructions - 1);

    for (const int left : {3, 2}) {  // The program takes three.
        program = preparedFrom(RarVmAssembler().dword(Op::print).dword(Op::print).dword(Op::ret).build());
        ScanBudget::takeVmInstructions(ScanBudget::vmInstructionsLeft() - left);
        program.AltCmd = left == 2 ? program.Cmd.data() : nullptr;
        vm.Execute(&program);
        EXPECT_EQ(program.Cmd[0].OpCode, left == 3 ? Op::print : Op::ret);
        EXPECT_EQ(ScanBudget::vmInstructionsLeft(), 0);
        budget = ScanBudget();
    }
}

TEST_F(RarVmTest, codeThatDoesNotParseIsCutShort) {
    RarVmAssembler program;
    program.mov(at(reg(1), 0x12345678), imm(0x12345678)).byte(Op::add, at(0x12345), imm(200)).dword(Op::ret);
    const Bytes code = program.build();
    VM_PreparedProgram prepared;
    const auto prepare = [&](const Bytes& bytes) {
        prepared = {};
        const bool done = vm.Prepare(bytes.data(), static_cast<int>(bytes.size()), &prepared);
        EXPECT_EQ(prepared.Cmd[prepared.Cmd.size() - 1].OpCode, Op::ret);
        return done;
    };
    // The commands end in the 11th, 17th and 18th byte behind the check byte; a return is always added.
    for (std::size_t n = 0; n <= code.size(); ++n) {
        EXPECT_TRUE(prepare(RarVmAssembler::checked({code.data(), code.data() + n})));
        EXPECT_EQ(prepared.CmdCount, 1 + (n > 11) + (n > 17) + (n > 18)) << n << " bytes";
    }
    Bytes wrong = code;
    wrong[3] ^= 1;
    EXPECT_TRUE(prepare(wrong));
    EXPECT_EQ(prepared.CmdCount, 1) << "the check byte does not fit";

    ScanBudget budget;
    const ScanBudget::Scope scope(budget);
    ScanBudget::takeVmCodeBytes(ScanBudget::kVmCodeBytes - 50);
    EXPECT_FALSE(prepare(code));
    EXPECT_EQ(prepared.CmdCount, 1);
}

TEST_F(RarVmTest, numbersComeFromStreamsAndMemory) {
    const std::uint32_t values[] = {0,       15,         16,         255,        256,       0xFFFF,
                                    0x10000, 0x80000000, 0xFFFFFEFF, 0xFFFFFF00, 0xFFFFFFFF};
    RarBitWriter writer;
    for (const std::uint32_t value : values) writer.putNumber(value);
    RarMemoryBits memory(writer.bytes());
    StringSource source({writer.bytes().begin(), writer.bytes().end()});
    RarBitInputStream stream(&source.stream, source.stream.available());
    for (const std::uint32_t value : values) {
        EXPECT_EQ(RarVM::ReadData(&memory), value);
        EXPECT_EQ(RarVM::ReadData(&stream), value);
    }
    EXPECT_FALSE(memory.overrun());
    memory.addBits(16);
    EXPECT_TRUE(memory.overrun() && memory.atEnd());
    EXPECT_EQ(RarVM::ReadData(&memory), 0U);

    Array<int> array;
    array.Add(3);
    for (const int more : {-1, 0x20000000 - 3}) {
        EXPECT_EQ(thrownBy<OutOfMemoryException>([&] { array.Add(more); }), "Array too large");
    }
    EXPECT_EQ(array.size(), 3U);
}

}  // namespace
}  // namespace ZOV_SPACE
